title Port $V:port_label$
navbar_script navbar.sh $F$
help_mode
expert_mode
body
error $E$
# A link may name a port that does not exist; then there is nothing to fill in.
if $V:port_label$
text What is plugged in here, and at what speed.

checkbox port_on
label Port
rlabel Switched on
help A port that is off passes no traffic at all.

field port_use 24
label Used for
prompt A note for yourself, for example Office printer
check nullok regex ^.{1,40}$
check_msg port_use Use at most 40 letters, digits and signs, without " $ \ or `

select port_speed
label Speed
choice auto Automatic
choice 1000 1000 Mbit/s
choice 100 100 Mbit/s
choice 10 10 Mbit/s
help Automatic is nearly always right. Choose a fixed speed only if the other
  end is fixed, too: both ends must be the same.

field port_vlan 6
label VLAN
prompt 1 to 4094, or blank for none
check nullok decimal 1 4094
check_msg port_vlan Enter a number from 1 to 4094, or leave it blank
help A VLAN keeps the traffic of this port apart. Without one the port
  belongs to your ordinary network.

# $X$ is true in the expert view, which the button Expert switches on.
if $X$
field port_mtu 6
label Largest packet
rlabel bytes
prompt 576 to 9000, usually 1500
check decimal 576 9000
check_msg port_mtu Enter a number from 576 to 9000, usually 1500
help Every device of a network must use the same number (its MTU).

checkbox port_pause
label Flow control
rlabel The other end may pause this port
# A message for a field that is not shown must still be visible.
else
if $E:port_mtu$
error Largest packet (press Expert to see it): $E:port_mtu$
endif
endif
endif
