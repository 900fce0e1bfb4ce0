title Routes
navbar_script navbar.sh
body
error $E$
text To add a route, fill in a blank row. To remove one, tick Delete, press
  Submit, and press Submit again.

# A row is in use while one of its texts is filled in.  Every column may be
# blank here; the script requires what a row in use lacks.
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
