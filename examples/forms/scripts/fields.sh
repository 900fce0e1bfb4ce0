#!/bin/bash
# The shortest kind of script: the page's checks need not be repeated here.
. "${BASH_SOURCE%/*}/orv.bash"
NAMES=(name lease sharing paper)

[[ $1 != --write ]] || orv_lock
orv_load fields
if [[ $1 == --read ]]; then
  orv_stamp
  orv_show "${NAMES[@]}"
  exit
fi

orv_read "${NAMES[@]}"
orv_stamp
orv_tick sharing
orv_end
if [[ $1 == --write ]]; then
  orv_store fields "${NAMES[@]}" && orv_log_changes && orv_changes
fi
