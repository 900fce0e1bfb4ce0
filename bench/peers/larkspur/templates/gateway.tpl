title Gateway
# Each field is checked when it is stored; rules between them need a script.
check_script rules.sh --check $F$
navbar_script navbar.sh --navbar
body
error $E$

field host_name 24
label Device name
prompt For example gateway-1
check regex ^[A-Za-z0-9]([A-Za-z0-9-]{0,61}[A-Za-z0-9])?$
check_msg host_name Use letters, digits and hyphens, 63 at most
field location 30
label Location
check nullok regex ^.{1,60}$
check_msg location Use 60 characters at most
field contact 30
label Contact
prompt A mail address
check nullok regex ^[A-Za-z0-9._+-]{1,60}@[A-Za-z0-9.-]{1,60}$
check_msg contact Enter a mail address

select addressing
label Addressing
choice no Automatic
choice yes Static
if $V:addressing$
field ip_address 15
label Address
prompt For example 192.168.1.20
check nullok ipaddr ipv4
check_msg ip_address Enter an address such as 192.168.1.20
field prefix 2
label Network size
prompt 1 to 30, usually 24
check nullok decimal 1 30
check_msg prefix Enter a number from 1 to 30
field gateway 15
label Gateway
check nullok ipaddr ipv4
check_msg gateway Enter an address such as 192.168.1.1
else
error $E:ip_address$ $E:prefix$ $E:gateway$
endif

field dns1 15
label Name server
check nullok ipaddr ipv4
check_msg dns1 Enter an address such as 9.9.9.9
field dns2 15
label Second name server
check nullok ipaddr ipv4
check_msg dns2 Enter an address such as 9.9.9.9
field ntp 30
label Time server
prompt A host name or an address
check nullok ipaddr ipv4 hostname
check_msg ntp Enter a host name or an address
select log_level
label Log
choice error Errors
choice notice Events
choice debug Everything
checkbox ssh
label Remote login

heading2 Port forwards
# Every column may be blank here: the script requires what a row in use lacks.
table forwards 4
select fw_proto
label Protocol
choice tcp TCP
choice udp UDP
choice both Both
field fw_port 5
label Outside port
check nullok decimal 1 65535
check_msg fw_port Enter a port, 1 to 65535
field fw_to 15
label Device
check nullok ipaddr ipv4
check_msg fw_to Enter an address such as 192.168.1.50
field fw_note 20
label Note
check nullok regex ^.{1,40}$
check_msg fw_note Use 40 characters at most
