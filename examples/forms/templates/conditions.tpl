title Address
navbar_script navbar.sh
body
error $E$
select static_ip
label Address
choice no Automatic (DHCP)
choice yes Set by hand
prompt The fields that belong to it appear here, at the latest with Submit

# Drawn for an address set by hand.  A value that is not drawn is checked all
# the same, so its message needs a place of its own.
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
