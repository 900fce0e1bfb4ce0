title Wireless
navbar_script navbar.sh
body
error $E$
field ssid 32
label Network
check regex ^[ -~]{1,32}$
field wifi_passphrase 30
label Passphrase
prompt Leave blank to keep it
check nullok text
select band
label Band
choice low 2.4 GHz
choice high 5 GHz
