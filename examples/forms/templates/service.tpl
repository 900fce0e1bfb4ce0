title Print service
navbar_script navbar.sh
body
error $E$
checkbox service_on
label Service
rlabel Switched on
