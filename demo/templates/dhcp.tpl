title Address server
navbar_script navbar.sh $F$
help_mode
expert_mode
body
error $E$
text The local network, and the addresses that its devices get from this one.

field dh_address 20
label Own address
prompt Address and network size, for example 192.168.1.1/24
check text
check_msg dh_address Enter the address, for example 192.168.1.1/24
help Your own devices find this one at this address. They lose contact for a
  moment when it changes, and so do you.
checkbox dh_on
label Address server
rlabel On
help A network must have exactly one address server.
field dh_first 16
label First address
check nullok ipaddr ipv4
check_msg dh_first Enter an address such as 192.168.1.100
field dh_last 16
label Last address
check nullok ipaddr ipv4
check_msg dh_last Enter an address such as 192.168.1.199
select dh_lease
label Valid for
choice 1h 1 hour
choice 12h 12 hours
choice 24h 1 day
choice 7d 7 days
help A short time suits a place where many devices come and go.
if $X$
field dh_domain 30
label Domain
prompt Sent to the devices, for example home.example.org; may stay blank
check nullok ipaddr hostname
check_msg dh_domain Enter a name such as home.example.org, or leave it blank
field dh_dns 30
label Name server
prompt Sent to the devices; blank means this device
check nullok ipaddr ipv4
check_msg dh_dns Enter an address such as 9.9.9.9, or leave it blank
# A message for a field that is not shown must still be visible.
else
if $E:dh_domain$
error Domain (press Expert to see it): $E:dh_domain$
endif
if $E:dh_dns$
error Name server (press Expert to see it): $E:dh_dns$
endif
endif

heading2 Always the same address
text These devices always get the same address. To add one, fill in the last row
  and press Submit. To remove one, tick Delete in its row and press Submit twice.
help The hardware address is on the device or in its settings. An address in
  this table may be inside or outside the range above.
table leases 3
field ls_name 16
label Name
check nullok regex ^[A-Za-z0-9]([A-Za-z0-9-]{0,30}[A-Za-z0-9])?$
check_msg ls_name Use letters, digits and hyphens, 32 at most, no blanks
field ls_mac 18
label Hardware address
check nullok iregex ^([0-9a-f]{2}:){5}[0-9a-f]{2}$
check_msg ls_mac Enter an address such as 52:54:00:12:ab:01
field ls_address 16
label Address
check nullok ipaddr ipv4
check_msg ls_address Enter an address such as 192.168.1.20
