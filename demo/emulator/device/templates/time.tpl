title Time
navbar_script navbar.sh
body
error $E$
text What the device's clock follows. Certificates and the log need the right
  time.
checkbox ntp_on
label Time service
rlabel Set the clock by a time server
field ntp_server 30
label Time server
prompt For example pool.ntp.org
check ipaddr ipv4 ipv6 hostname
check_msg ntp_server Enter a name such as pool.ntp.org or an address
