#!/bin/bash
. "${BASH_SOURCE%/*}/backup.inc"
task=$1
if [[ $task == write ]]; then
  orv_lock
fi
orv_load "$FILE"
orv_read "${VALUES[@]}"
orv_stamp
when=${orv[backup_when]}
host=${orv[backup_host]}
if [[ $when != never && -z $host ]]; then
  orv_error backup_host 'Where to?'
fi
if [[ $when != never && -z ${orv[backup_hour]} ]]; then
  orv_error backup_hour 'At which hour?'
fi
orv_end
[[ $task == write ]] || exit 0
if orv_store "$FILE" "${VALUES[@]}"; then
  orv_changes
fi
