title Clock
body
error $E$
field server 30
label Time server
prompt A host name or an address
check ipaddr ipv4 ipv6 hostname
