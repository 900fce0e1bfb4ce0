#!/bin/bash
# The settings as shipped, for giving the device away or starting again.
. "${BASH_SOURCE%/*}/orv.bash"

# There is nothing to change on this page, so it reports always_submit.
if [[ $1 == --read ]]; then
  orv_put always_submit True
  orv_put reset_sure False
  orv_put reset_login False
  orv_put wait_restart ''
  exit
fi

orv_read reset_sure reset_login
orv_tick reset_sure reset_login
if [[ ${orv[reset_sure]} != True ]]; then
  orv_error reset_sure 'Tick this box to confirm'
fi
orv_end
if [[ $1 != --write ]] || ((orv_failed)) || ! orv_reset; then
  exit
fi
orv_put u_after_save 'These are the settings as shipped.'
if [[ ${orv[reset_login]} != True ]] || orv_act reset_login 30; then
  orv_put wait_restart 90
  orv_after_page 2 logger -t reset 'here: reboot'
fi
