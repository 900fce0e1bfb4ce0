title VLANs
read_script vlan.sh --list
navbar_script navbar.sh
body
error $E$
text Choose one.
imenu vlan
