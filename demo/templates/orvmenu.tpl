# The start page.
title Larkspur demo gateway
read_script orvmenu.sh --read
navbar_script navbar.sh
help_mode
body
error $E$
text This is $B$$V:host_name$$R$. What do you want to set up?
help Each page shows what the device uses now. Nothing changes until you
  press Submit on a page, and Home always brings you back here.

heading2 Network
fmenu
choice network Name and address
choice interfaces Ports
choice forwards Port forwards

heading2 Device
fmenu
choice services Remote access, time and log
choice status Status
