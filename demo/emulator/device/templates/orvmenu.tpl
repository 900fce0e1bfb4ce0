# The start page.
title $N:SYSTEM_TYPE$
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
choice name Host name
choice network Network
choice services Services
choice time Time

heading2 Device
fmenu
choice login Password
choice users Administrator
choice log Log
choice history History
choice restart Restart
