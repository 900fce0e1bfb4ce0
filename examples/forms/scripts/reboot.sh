#!/bin/bash
. "${BASH_SOURCE%/*}/orv.bash"

# The page can be submitted without a change.
if [[ $1 == --read ]]; then
  orv_put always_submit True
  orv_put sure False
  orv_put wait_restart ''
  exit
fi

orv_read sure
orv_tick sure
if [[ ${orv[sure]} != True ]]; then
  orv_error sure 'Tick this box to confirm'
fi
orv_end
if [[ $1 == --write ]] && ((!orv_failed)); then
  orv_put u_after_save 'It is back in about a minute.'
  orv_put wait_restart 90 # seconds; the page waits for the device
  orv_after_page 2 logger -t reboot 'here: reboot'
fi
