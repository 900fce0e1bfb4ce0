#!/bin/bash
# migrate/upgrade migrates settings of an older version of this form;
# defaults/upgrade has the current version.
. "${BASH_SOURCE%/*}/orv.bash"

[[ $1 != --write ]] || orv_lock
orv_load upgrade
if [[ $1 == --read ]]; then
  orv_stamp
  orv_show minutes warn
  exit
fi

orv_read minutes warn
orv_stamp
orv_tick warn
orv_end
if [[ $1 == --write ]]; then
  orv_store upgrade minutes warn && orv_log_changes && orv_changes
fi
