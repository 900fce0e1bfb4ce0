title Services
navbar_script navbar.sh
body
error $E$
text What the device offers in your network.
heading2 Remote access
checkbox ssh_on
label SSH
rlabel Let administrators log in to a command line
checkbox ssh_passwords
label Passwords
rlabel Let them use passwords, not only keys
heading2 Log
field log_server 30
label Log server
prompt Also send the log to this name or address; may stay blank
check nullok ipaddr ipv4 hostname
check_msg log_server Enter a name or an address, or leave it blank
