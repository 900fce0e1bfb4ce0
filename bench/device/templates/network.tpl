title Network
navbar_script navbar.sh
help_mode
body
error $E$
text How the device is called and how it is found in your network.

field host_name 24
label Device name
prompt For example gateway-1
check regex ^[A-Za-z0-9-]{1,63}$
check_msg host_name Use letters, digits and hyphens, 63 at most
help A short name. A hyphen may stand inside it, not at its ends.
field domain 30
label Domain
check nullok text
field location 40
label Location
prompt Where to find the device, for people
check nullok text
field contact 40
label Contact
check nullok text
select mode
label Address
choice dhcp Automatic (DHCP)
choice static Static, set by hand
field address 15
label Static address
check nullok ipaddr ipv4
field netmask 15
label Network mask
check nullok ipaddr ipv4
field gateway 15
label Gateway
check nullok ipaddr ipv4
field dns1 15
label Name server
prompt For example 9.9.9.9, or blank to use what the network offers
check nullok ipaddr ipv4
field dns2 15
label Second name server
check nullok ipaddr ipv4
field mtu 5
label Packet size
rlabel bytes
check number 576 9000
field ntp_server 30
label Time server
check nullok text
field log_server 30
label Log server
check nullok text
select log_level
label Log level
choice err Errors
choice warning Warnings
choice info Information
choice debug Everything

heading2 Routes
table routes 3
field route_to 18
label Network
check nullok text
field route_via 15
label Gateway
check nullok ipaddr ipv4
checkbox route_on
label Active
