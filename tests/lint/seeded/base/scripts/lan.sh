#!/bin/bash
. "${BASH_SOURCE%/*}/orv.bash"
NAMES=(static_ip hostname address dns vlan ping mail_to mtu offset zone)

# zones: the lines of the list.
zones()
{
  local number=0 zone
  for zone in UTC CET; do
    orv_put "select_zones$number" "$zone $zone"
    number=$((number + 1))
  done
}

[[ $1 != --write ]] || orv_lock
orv_load lan
if [[ $1 == --read ]]; then
  orv_stamp
  orv_show "${NAMES[@]}"
  orv_put mac 02:00:00:00:00:01
  zones
  exit
fi

orv_read "${NAMES[@]}"
orv_stamp
orv_tick ping
if ! orv_one_of "${orv[zone]}" UTC CET; then
  orv_error zone 'Choose a zone of the list'
fi
if [[ ${orv[static_ip]} == yes && -z ${orv[address]} ]]; then
  orv_error address 'Enter an address such as 10.0.0.2/24'
fi
if [[ ${orv[mtu]} ]] && [ "${orv[mtu]}" -lt 1280 ]; then
  orv_error mtu 'Enter at least 1280'
fi
orv_end
if [[ $1 == --write ]]; then
  orv_guard 120 logger -t lan 'addresses changed'
  orv_store lan "${NAMES[@]}" && orv_changes
fi
