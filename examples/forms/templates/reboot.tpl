title Restart
navbar_script navbar.sh
body
error $E$
checkbox sure
label Restart now
rlabel Yes, restart the device
