# The start page, shown for a request without a form's name.
title $N:SYSTEM_TYPE$
read_script /bin/true
navbar_script navbar.sh --navbar
body
error $E$
text What do you want to set up?
fmenu
choice clock Clock
