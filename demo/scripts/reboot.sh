#!/bin/bash
# Restart, which this demo only simulates, and the settings as shipped.
#
# There is nothing to change on this page, so it reports always_submit:
# without that, the check of the box below would never run.
. "${BASH_SOURCE%/*}/lib.sh"

if [[ $1 == --read ]]; then
  printf '%s\n' 'always_submit="True"' 'rb_what="restart"' 'rb_sure="False"' \
    'wait_restart="5"'
  exit
fi

orv_read rb_what rb_sure
orv_tick rb_sure
if [[ ${orv[rb_sure]} == False ]]; then
  orv_error rb_sure 'Tick this box to confirm'
elif ! orv_one_of "${orv[rb_what]}" restart shipped; then
  orv_error rb_what 'Choose what to do'
fi
orv_end
if [[ $1 != --write ]] || ((orv_failed)); then
  exit
fi

if [[ ${orv[rb_what]} == restart ]]; then
  printf -v 'orv[rb_last]' '%(%Y-%m-%d %H:%M:%S)T' -1
  if orv_store reboot rb_last; then
    note_by_user 'Restarted'
    orv_put u_saved_title 'Restarting'
    orv_put u_saved_note 'The device restarts now (not really: a demo).'
  fi
elif orv_reset; then
  note_by_user 'Settings as shipped put back'
  orv_put u_saved_title 'As shipped'
  orv_put u_saved_note 'All settings are those that the device came with.'
fi
