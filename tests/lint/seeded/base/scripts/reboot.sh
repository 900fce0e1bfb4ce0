#!/bin/bash
. "${BASH_SOURCE%/*}/orv.bash"

if [[ $1 == --read ]]; then
  orv_put always_submit 1
  orv_put sure False
  orv_put wait_restart ''
  exit
fi

orv_read sure
orv_tick sure
if [[ ${orv[sure]} != True ]]; then
  orv_error sure 'Tick the box to restart'
fi
orv_end
if [[ $1 == --write && ! $orv_failed == 1 ]]; then
  orv_put u_after_save 'It is back in about a minute.'
  orv_put wait_restart 90
  orv_after_page 2 logger -t reboot 'here: reboot'
fi
