title Restart
navbar_script navbar.sh
body
error $E$
text The device is away for a minute.
checkbox sure
label Restart now
