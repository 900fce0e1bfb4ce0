# The start page.
title Larkspur demo gateway
read_script orvmenu.sh --read
navbar_script navbar.sh $F$
help_mode
body
error $E$
text This is $B$$V:host_name$$R$. What do you want to set up?
help Each page shows what the device uses now. Nothing changes until you
  press Submit on a page, and Home always brings you back here.

  The button Expert shows the rarer settings of a page that has some; elsewhere
  it is grey.

heading2 Network
fmenu
choice network Network
choice interfaces Ports
choice wireless Wireless
choice dhcp Address server

heading2 Access
fmenu
choice firewall Firewall
choice forwards Port forwards
choice services Services
choice users Users
choice login Password

heading2 Device
fmenu
choice status Status
choice system Place and time
choice log Log
choice history History
choice reboot Restart

heading2 For form authors
fmenu
choice errors Try errors
