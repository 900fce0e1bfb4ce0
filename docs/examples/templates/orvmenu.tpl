# The start page: the form that a request without a form's name gets.
title Example device
read_script empty.sh
navbar_script navbar.sh
body
error $E$
text What do you want to set up?
heading2 Network
fmenu
choice address Address
choice port/lan1 Port LAN 1
choice ports All ports
choice routes Routes
choice wireless Wireless
heading2 Device
fmenu
choice clock Clock
choice status Status
