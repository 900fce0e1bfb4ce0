#!/bin/bash
# The system log, the newest line first, without the requests of pages, which
# would leave no room for the events.
. "${BASH_SOURCE%/*}/orv.bash"

SHOWN=40

[[ $1 == --read ]] || exit 0
mapfile -t lines < <(logread 2>/dev/null |
  grep -v ' lighttpd\[[0-9]*]: .* HTTP/[0-9.]*" ' | tail -n $SHOWN)
# A line has a time of 15 characters, and the event.  The codes are the page's:
# emphasis, its end, the end of a line.
for ((i = 0; i < ${#lines[@]}; i++)); do
  line=${lines[-1 - i]//\$/}
  orv_put "log$i" "\$B\$${line:0:15}\$R\$ ${line:16:200}\$L\$"
done
exit 0
