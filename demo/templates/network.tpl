title Network
navbar_script navbar.sh $F$
help_mode
expert_mode
body
error $E$
# Fields that the page has not shown yet are requested without an error.
if $E:ask$
text $B$$E:ask$$R$
endif
text The device's name, and how it is found in your network.

field host_name 24
label Device name
prompt For example gateway-1
check regex ^[A-Za-z0-9]([A-Za-z0-9-]{0,61}[A-Za-z0-9])?$
check_msg host_name Use letters, digits and hyphens, 63 at most, no blanks
help A short name by which others in your network find the device. A hyphen may
  be inside it, but not at its ends.

heading2 Internet address (IPv4)
# The condition below is evaluated when a page is drawn: at once in a browser
# with JavaScript, otherwise when a button is pressed.
select static_ip
label Address
choice no Automatic (DHCP)
choice yes Static, set by hand
prompt The fields for Static appear here, at the latest when you press Submit
help $B$Automatic$R$: the router of your network gives the device its address.
  $L$$B$Static$R$: you choose an address yourself. If the fields for it do not
  appear by themselves, press Submit once: nothing is saved before they are
  filled in.

# The check script looks at these two: it does so only for a static address,
# while a named check here would also refuse a field that is not shown.
if $V:static_ip$
field ip_address 20
label Static address
prompt Address and network size, for example 192.168.1.20/24
check nullok text
if $V:last_ip_address$
text Last static address: $B$$V:last_ip_address$$R$
endif
help The number after the / says how large your network is. In most homes and
  offices it is 24. It is written as 255.255.255.0 in other places.
field gateway 20
label Gateway
prompt The router's address, for example 192.168.1.1
check nullok text
help Leave it blank if the device needs no Internet access. Otherwise it
  must be in the same network as the address above.
else
error $E:ip_address$ $E:gateway$
endif

heading2 Internet address (IPv6)
# "no" and "off" are both false for a condition: the fields show for "yes" alone.
select ip6_mode
label IPv6
choice no Automatic
choice yes Static, set by hand
choice off Off
help Automatic uses the address that the network offers, if any.
if $V:ip6_mode$
field ip6_address 40
label Static IPv6 address
prompt Address and network size, for example 2001:db8::20/64
check nullok text
if $V:last_ip6_address$
text Last static address: $B$$V:last_ip6_address$$R$
endif
field ip6_gateway 40
label IPv6 gateway
prompt The router's address, for example fe80::1
check nullok text
help Leave it blank to use the router that announces itself.
else
error $E:ip6_address$ $E:ip6_gateway$
endif

heading2 Name servers
field dns1 40
label Name server
prompt For example 9.9.9.9, or blank to use what the network offers
check nullok ipaddr ipv4 ipv6
check_msg dns1 Enter an address such as 9.9.9.9, or leave it blank
help A name server turns names such as example.org into addresses.
field dns2 40
label Second name server
prompt Used when the first does not answer; may stay blank
check nullok ipaddr ipv4 ipv6
check_msg dns2 Enter an address such as 9.9.9.9, or leave it blank
# $X$ is true in the expert view, which the button Expert switches on.
if $X$
field dns_search 30
label Search domain
prompt Appended to short names, for example example.org; may stay blank
check nullok ipaddr hostname
check_msg dns_search Enter a name such as example.org, or leave it blank
# A message for a field that is not shown must still be visible.
else
if $E:dns_search$
error Search domain (press Expert to see it): $E:dns_search$
endif
endif
