#!/bin/bash
# Restarts the device, with its settings or as shipped.  There is nothing to
# change on this page, so it reports always_submit.
. "${BASH_SOURCE%/*}/orv.bash"

if [[ $1 == --read ]]; then
  printf '%s\n' 'always_submit="True"' 're_what="restart"' 're_sure="False"' \
    'wait_restart=""'
  exit
fi

orv_read re_what re_sure
orv_tick re_sure
if [[ ${orv[re_sure]} == False ]]; then
  orv_error re_sure 'Tick this box if you mean it'
elif ! orv_one_of "${orv[re_what]}" restart shipped; then
  orv_error re_what 'Choose what to do'
fi
orv_end
if [[ $1 != --write ]] || ((orv_failed)); then
  exit
fi
if [[ ${orv[re_what]} == restart ]] || orv_reset; then
  orv_act restart || exit
  orv_put u_saved_title 'Restarting'
  orv_put u_saved_note 'The device is back in about a minute.'
  orv_put wait_restart 120
fi
