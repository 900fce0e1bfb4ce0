title Sockets
navbar_script navbar.sh
body
error $E$
ftable sockets 3 2
fixed socket 10
label Socket
checkbox socket_on
label On
field socket_note 30
label Note
check nullok regex ^.{1,60}$
