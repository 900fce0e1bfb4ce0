title Services
navbar_script navbar.sh $F$
help_mode
expert_mode
body
error $E$
text What the device offers in your network, and who is notified of events.

heading2 Remote access
checkbox ssh_on
label SSH login
rlabel On
help For administrators who use a command line. Leave it off if you do
  not know it.
if $X$
field ssh_port 6
label SSH port
prompt 1 to 65535, usually 22
check decimal 1 65535
check_msg ssh_port Enter a number from 1 to 65535, usually 22
checkbox ssh_key_only
label SSH keys
rlabel Refuse passwords
# A message for a field that is not shown must still be visible.
else
if $E:ssh_port$
error SSH port (press Expert to see it): $E:ssh_port$
endif
endif
checkbox mdns_on
label Find by name
rlabel Answer in this network
help With this a browser finds the device as $B$name.local$R$.

heading2 Alerts
checkbox alert_on
label By mail
rlabel When a port goes down or a login fails
field alert_mail 30
label Mail address
prompt For example anna@example.org
check nullok email
check_msg alert_mail Enter an address such as anna@example.org

heading2 Log
select log_level
label Log level
choice error Errors only
choice warning Errors and warnings
choice info Normal events
choice debug Everything (slow)
help More detail helps to find problems, but fills the log sooner.
if $X$
field log_server 30
label Log server
prompt Also send the log to this name or address; may stay blank
check nullok ipaddr ipv4 ipv6 hostname
check_msg log_server Enter a name or an address, or leave it blank
else
if $E:log_server$
error Log server (press Expert to see it): $E:log_server$
endif
endif
