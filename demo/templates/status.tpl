# Only read-only (fixed) fields: there is nothing to save, so Submit is not
# shown.
title Status
navbar_script navbar.sh $F$
help_mode
body
error $E$
text The current state of the device: a $N:SYSTEM_TYPE$ with hardware
  $N:HW_VERSION$ and software $N:SW_VERSION$. Choose Status above to look again,
  if the page does not do so by itself.
help These are the values of the machine that the demo runs on.
  $L$$B$Load$R$ is the number of tasks that want to run. It should stay below
  the number of the machine's processors.

heading2 Device
fixed host_name 40
label Device name
if $V:place$
fixed place 40
label Place
endif
fixed st_time 40
label Clock
fixed st_uptime 40
label Running for
if $V:rb_last$
fixed rb_last 40
label Last simulated restart
endif

heading2 Health
fixed st_load 40
label Load
fixed st_memory 40
label Memory
fixed st_kernel 40
label Kernel
if $V:st_gateway$
fixed st_gateway 40
label Route to the Internet
endif

heading2 Traffic since it was started
ftable traffic 4
fixed if_name 12
label Interface
fixed if_state 6
label Link
fixed if_in 10
label Received
fixed if_out 10
label Sent
