title Wireless
navbar_script navbar.sh
body
error $E$
field ssid 32
label Network name
check regex ^.{1,32}$
field wifi_passphrase 40
label New passphrase
prompt Blank keeps the one in use
check nullok regex ^.{8,63}$
check_msg wifi_passphrase Enter 8 to 63 characters
