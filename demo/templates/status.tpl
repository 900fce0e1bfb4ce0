# Fixed fields only: there is nothing to save here, and Submit says so.
title Status
navbar_script navbar.sh
help_mode
body
error $E$
text How the device is doing right now. Choose Status above to look again.
help Load is the number of tasks that want to run. It should stay below the
  number of the machine's processors.

fixed host_name 40
label Device name
fixed st_time 40
label Clock
fixed st_uptime 40
label Running for
fixed st_load 40
label Load
fixed st_memory 40
label Memory
fixed st_kernel 40
label Kernel

heading2 Network traffic
text Since the device was started.
ftable traffic 3
fixed if_name 12
label Interface
fixed if_in 10
label Received
fixed if_out 10
label Sent
