#!/bin/bash
# The tree of templates in use; the action `language` sets the link to it as
# root.
. "${BASH_SOURCE%/*}/orv.bash"

[[ $1 != --write ]] || orv_lock
orv_load language
if [[ $1 == --read ]]; then
  orv_stamp
  orv_show language
  exit
fi

orv_read language
orv_stamp
orv_one_of "${orv[language]}" en de || orv_error language 'Choose one of them'
orv_end
if [[ $1 == --write ]] && ((!orv_failed)); then
  orv_store language language && orv_log_changes && orv_changes &&
    orv_act language 30
fi
