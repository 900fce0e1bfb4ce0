title Ports
read_script port.sh --list
navbar_script navbar.sh
body
error $E$
text Choose a port.
imenu port ports
