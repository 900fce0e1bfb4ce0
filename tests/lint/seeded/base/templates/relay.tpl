title Relay $S$
navbar_script navbar.sh
body
error $E$
field relay_name 20
label Name
check regex ^.{1,20}$
checkbox relay_on
label On
iselect relay_mode modes
label Mode
field relay_pin 8
label New PIN
prompt Blank keeps the one in use
check nullok regex ^[0-9]{4,8}$
checkbox relay_pin_clear
label No PIN
