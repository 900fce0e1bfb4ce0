title Quiet hours
navbar_script navbar.sh
body
error $E$
field from 4
label From
check nullok decimal 0 23
field to 4
label To
rlabel o'clock
prompt Leave both blank for none
check nullok decimal 0 23
