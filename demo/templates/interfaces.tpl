title Ports
navbar_script navbar.sh $F$
help_mode
body
error $E$
text Choose a port to see or change its settings.
help The names are those printed beside the sockets. WAN leads to the
  Internet, the others to your own devices.
# Opens the form "port" with the entry's first word as its sub-item.
imenu port ports
