title Routes
navbar_script navbar.sh
body
error $E$
text Fill in a blank row to add a route.
table routes 3 2
select route_use
label Use
choice yes On
choice no Off
field route_to 18
label Network
check nullok ipaddr ipv4 cidr
field route_via 15
label Gateway
check nullok ipaddr ipv4
