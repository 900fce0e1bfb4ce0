title Network
navbar_script navbar.sh
help_mode
body
error $E$
text How the device is found in your network. A wrong address locks nobody out:
  a change goes back by itself unless you keep it, at the new address, within
  90 seconds.

select static_ip
label Address
choice no Automatic (DHCP)
choice yes Static, set by hand
help $B$Automatic$R$: the router of your network gives the device its address.
  $L$$B$Static$R$: you choose an address yourself.
field ip_address 20
label Static address
prompt Address and network size, for example 192.168.1.20/24
check nullok ipaddr ipv4 cidr
check_msg ip_address Enter an address such as 192.168.1.20/24
help The number after the / says how large your network is. In most homes and
  offices it is 24.
field gateway 20
label Gateway
prompt The router's address, for example 192.168.1.1
check nullok ipaddr ipv4
check_msg gateway Enter an address such as 192.168.1.1, or leave it blank
field dns 20
label Name server
prompt For example 9.9.9.9; an automatic address brings its own
check nullok ipaddr ipv4
check_msg dns Enter an address such as 9.9.9.9, or leave it blank
