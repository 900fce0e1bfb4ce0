title Address
navbar_script navbar.sh
body
error $E$
select static_ip
label Address
choice no Automatic (DHCP)
choice yes Set by hand
prompt Its fields appear here, at the latest when you press Submit

# Drawn for a static address.  A field that is not drawn is still checked,
# so its message needs another place.
if $V:static_ip$
field address 20
label Address and network
prompt For example 192.168.1.20/24
check ipaddr ipv4 cidr
field gateway 20
label Gateway
prompt May stay blank
check nullok ipaddr ipv4
else
error $E:address$
error $E:gateway$
endif
