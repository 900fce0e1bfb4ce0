title Time zone
navbar_script navbar.sh
body
error $E$
iselect zone zones
label Time zone
