title Network
navbar_script navbar.sh
help_mode
expert_mode
body
error $E$
help $B$Static$R$: the address is yours to choose.
field hostname 20
label Name
prompt A letter first, then up to 19 more letters and digits
check regex ^[a-z][a-z0-9]{0,19}$
select static_ip
label Address from
choice no The network
choice yes This page
if $V:static_ip$
field address 18
label Address
check ipaddr ipv4 cidr
else
error $E:address$
endif
field dns 15
label Name server
check nullok ipaddr ipv4
field vlan 4
label VLAN
check nullok decimal 1 4094
checkbox ping
label Answer pings
field mail_to 30
label Mail to
check nullok email
check_msg mail_to $V:mail_to$ is no address
fixed mac 17
label Hardware address
heading2 Expert
if $X$
field mtu 5
label MTU
check nullok decimal 576 1500
field offset 4
label Clock offset
check nullok signed -12 12
else
error $E:mtu$
error $E:offset$
endif
iselect zone zones
label Zone
