title Saved
read_script empty.sh
navbar_script navbar.sh
body
error $E$
text The device uses your settings from now on. $V:after_save$
