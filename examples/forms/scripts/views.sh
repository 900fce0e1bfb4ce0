#!/bin/bash
. "${BASH_SOURCE%/*}/orv.bash"

[[ $1 != --write ]] || orv_lock
orv_load views
if [[ $1 == --read ]]; then
  orv_stamp
  orv_show country power
  exit
fi

orv_read country power
orv_stamp
# During checks the expert view is off, so a blank value was accepted.
if [[ -z ${orv[power]} ]]; then
  orv_error power 'Transmit power (press Expert): enter 1 to 100'
fi
orv_end
if [[ $1 == --write ]]; then
  orv_store views country power && orv_changes
fi
