title Address of this device
navbar_script navbar.sh
body
error $E$
text A wrong address locks nobody out: unless somebody keeps the change at the
  new one within two minutes, the device goes back to the old one.
field address 20
label Address and network
check ipaddr ipv4 cidr
