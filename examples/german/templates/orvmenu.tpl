# Die Startseite: das Formular, das ohne einen Namen aufgerufen wird.
title $N:SYSTEM_TYPE$
read_script /bin/true
navbar_script navbar.sh --navbar
body
error $E$
text Was möchten Sie einstellen?
fmenu
choice clock Uhr
