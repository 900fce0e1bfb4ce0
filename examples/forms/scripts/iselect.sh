#!/bin/bash
. "${BASH_SOURCE%/*}/orv.bash"
# Each entry is a value, then its text.
ZONES=(
  'UTC Universal time'
  'Europe/Berlin Berlin, Paris, Rome'
  'Asia/Tokyo Tokyo, Osaka'
)

[[ $1 != --write ]] || orv_lock
orv_load iselect
if [[ $1 == --read ]]; then
  orv_stamp
  orv_put zone "${orv[zone]:-UTC}"
  for i in "${!ZONES[@]}"; do
    orv_put "select_zones$i" "${ZONES[i]}"
  done
  exit
fi

orv_read zone
orv_stamp
# The page does not compare the value with the entries.
if ! orv_one_of "${orv[zone]}" "${ZONES[@]%% *}"; then
  orv_error zone 'Choose a time zone from the list'
fi
orv_end
if [[ $1 == --write ]]; then
  orv_store iselect zone && orv_changes
fi
