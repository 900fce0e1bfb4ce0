title Port forwards
navbar_script navbar.sh $F$
help_mode
body
error $E$
text A forward lets callers from the Internet reach one of your own devices.
  $L$To add one, fill in the last row and press Submit. To remove one, tick
  Delete in its row and press Submit twice.
help $B$Paused$R$ keeps a row without using it.
  $L$$B$Outside port$R$ is the port that callers use.
  $L$$B$Device$R$ is the address of your device, for example 192.168.1.50.
  $L$$B$Its port$R$ may stay blank when it is the same as the outside port.
  $L$To add several rows, submit one after the other.

# Every text may be blank here: a row is deleted when all its texts are blank;
# the check script requires what a row in use lacks.
table forwards 6
checkbox fw_off
label Paused
select fw_proto
label Protocol
choice tcp TCP
choice udp UDP
choice both Both
field fw_port 6
label Outside port
check nullok decimal 1 65535
field fw_address 15
label Device
check nullok ipaddr ipv4
field fw_to 6
label Its port
check nullok decimal 1 65535
field fw_note 16
label Note
check nullok regex ^.{1,60}$
