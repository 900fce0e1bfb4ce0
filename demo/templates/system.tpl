title Place and time
navbar_script navbar.sh $F$
help_mode
expert_mode
body
error $E$
text Where the device stands, and what its clock follows.

field place 30
label Place
prompt For example Cabinet 2, first floor
check nullok regex ^.{1,60}$
check_msg place Use at most 60 letters, digits and signs, without " $ \ or `
field contact 30
label Contact
prompt Mail address of the person to ask; may stay blank
check nullok email
check_msg contact Enter an address such as anna@example.org, or leave it blank

heading2 Clock
iselect time_zone zones
label Time zone
prompt When this page was read it was $V:clock$ there
help The device changes to summer time by itself where the zone has one.
checkbox ntp_on
label Time service
rlabel Set the clock by time servers
help Without it the clock goes on by itself and is some seconds wrong after a
  week. Certificates and log entries need the right time.
field ntp_server 30
label Time server
prompt For example pool.ntp.org
check nullok ipaddr ipv4 ipv6 hostname
check_msg ntp_server Enter a name such as pool.ntp.org or an address
field ntp_server2 30
label Second time server
prompt Used when the first does not answer; may stay blank
check nullok ipaddr ipv4 ipv6 hostname
check_msg ntp_server2 Enter a name or an address, or leave it blank
if $X$
field ntp_hours 4
label Ask again after
rlabel hours
prompt 1 to 168, usually 12
check decimal 1 168
check_msg ntp_hours Enter a number from 1 to 168, usually 12
checkbox ntp_answer
label Tell others
rlabel Answer when others in this network ask for the time
# A message for a field that is not shown must still be visible.
else
if $E:ntp_hours$
error Ask again after (press Expert to see it): $E:ntp_hours$
endif
if $E:ntp_answer$
error Tell others (press Expert to see it): $E:ntp_answer$
endif
endif
