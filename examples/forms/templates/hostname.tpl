title Host name
navbar_script navbar.sh
body
error $E$
field hostname 30
label Host name
check ipaddr hostname
