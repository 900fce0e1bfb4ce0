title Host name
navbar_script navbar.sh
body
error $E$
text How the device is called in your network and in its log.
field host_name 24
label Host name
prompt For example gateway-1
check regex ^[A-Za-z0-9]([A-Za-z0-9-]{0,61}[A-Za-z0-9])?$
check_msg host_name Use letters, digits and hyphens, 63 at most, no blanks
