title Saved
read_script /bin/true
navbar_script navbar.sh
body
error $E$
text The device uses your settings from now on.
