title Wireless
navbar_script navbar.sh
expert_mode
body
error $E$
checkbox enabled
label Wireless
rlabel Switched on
field ssid 32
label Network name
prompt What others see, 32 characters at most
check regex ^.{1,32}$
check_msg ssid Enter a name of 1 to 32 characters
iselect channel channels
label Channel
field passphrase 40
label New passphrase
prompt Blank keeps the passphrase in use
check nullok regex ^.{8,63}$
check_msg passphrase Enter 8 to 63 characters
if $X$
select power
label Transmit power
choice full Full
choice half Half
else
error $E:power$
endif
