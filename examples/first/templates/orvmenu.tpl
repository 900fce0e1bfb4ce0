# The start page: the form that a request without a form's name gets.
title $N:SYSTEM_TYPE$
read_script /bin/true
navbar_script navbar.sh --navbar
body
error $E$
text What do you want to set up?
fmenu
choice clock Clock
