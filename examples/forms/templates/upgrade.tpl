title Log out
navbar_script navbar.sh
body
error $E$
field minutes 5
label Log out after
rlabel minutes
check decimal 1 1440
checkbox warn
label Warning
rlabel Warn a minute before
