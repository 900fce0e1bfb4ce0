title Firewall
navbar_script navbar.sh $F$
help_mode
expert_mode
body
error $E$
text What may come in. The first matching rule decides, beginning with the lowest
  number.

select fr_policy
label Everything else
choice drop Drop it without an answer
choice reject Refuse it
choice allow Let it pass
prompt What happens when no rule matches
help Answers to your own devices always come in: they need no rule.
checkbox fr_ping
label Ping
rlabel Answer pings from the Internet
if $X$
checkbox fr_log
label Log
rlabel Log what was dropped or refused
endif

heading2 Rules
text To add a rule, fill in the last row and press Submit. To remove one, tick
  Delete in its row and press Submit twice.
help $B$No.$R$ is the order. With 15 a rule moves between the rules 10 and 20;
  a new rule without a number goes to the end.
  $L$$B$Paused$R$ keeps a rule without using it.
  $L$$B$From$R$ is the socket where it comes in: WAN is the Internet, LAN are
  your own devices.
  $L$$B$Source$R$ is an address such as 203.0.113.7, or a network such as
  203.0.113.0/24. Blank means everybody.
  $L$$B$Port$R$ is the port of this device that is called. Blank means all.
  $L$A rule needs a number, a source or a port.

# Every text may be blank here: a row is deleted when all its texts are blank.
table rules 7
field fr_pos 3
label No.
check nullok decimal 0 9999
checkbox fr_off
label Paused
select fr_do
label Action
choice allow Pass
choice reject Refuse
choice drop Drop
select fr_from
label From
choice wan WAN
choice lan LAN
choice any Any
select fr_proto
label Kind
choice tcp TCP
choice udp UDP
choice icmp ICMP
choice any Any
field fr_source 15
label Source
check nullok ipaddr ipv4 optcidr
field fr_port 6
label Port
check nullok decimal 1 65535
