#!/bin/bash
# The settings as shipped, for who gives the device away or is lost in them.
. "${BASH_SOURCE%/*}/orv.bash"

# There is nothing to change on this page, so it asks to be submitted always.
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
  orv_error reset_sure 'Tick this box if you mean it'
fi
orv_end
if [[ $1 != --write ]] || ((orv_failed)) || ! orv_reset; then
  exit
fi
orv_put u_after_save 'They are those that it came with.'
if [[ ${orv[reset_login]} != True ]] || orv_act reset_login 30; then
  orv_put wait_restart 90
  orv_after_page 2 logger -t reset 'here: reboot'
fi
