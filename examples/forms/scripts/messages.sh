#!/bin/bash
# A check script: checks fields that depend on each other.
. "${BASH_SOURCE%/*}/orv.bash"

[[ $1 != --write ]] || orv_lock
orv_load messages
if [[ $1 == --read ]]; then
  orv_stamp
  orv_show from to
  exit
fi

orv_read from to
orv_stamp
if [[ ${orv[from]} && -z ${orv[to]} ]]; then
  orv_error to 'Enter the end as well, or leave both blank'
elif [[ ${orv[to]} && -z ${orv[from]} ]]; then
  orv_error from 'Enter the beginning as well, or leave both blank'
elif [[ ${orv[from]} ]] && [ "${orv[from]}" -eq "${orv[to]}" ]; then
  orv_error to 'The end must be another hour than the beginning'
fi
orv_end
if [[ $1 == --write ]]; then
  orv_store messages from to && orv_changes
fi
