title Own
read_script own.sh --read
check_script empty.sh
write_script own.sh --write
navbar_script empty.sh
help_mode
body
error $E$
field own_passphrase 20
label Passphrase
check nullok regex ^.{8,}$
select own_mode
label Mode
choice no Off
choice yes On
help Some help
if $V:OWN_Mode$
heading2 More
field own_more 10
label More
check nullok text
endif
field own_address 20
label Address
check nullok text
table own 2
field own_name 8
label Name
check nullok word
field own_pin 8
label PIN
check nullok decimal 0 9999
