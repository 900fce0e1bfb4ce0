title Saved
read_script empty.sh
navbar_script navbar.sh
body
error $E$
text Your changes are saved. The device uses them from now on.
