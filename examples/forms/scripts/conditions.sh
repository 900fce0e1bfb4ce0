#!/bin/bash
. "${BASH_SOURCE%/*}/orv.bash"
NAMES=(static_ip address gateway)

[[ $1 != --write ]] || orv_lock
orv[static_ip]=no
orv_load conditions
if [[ $1 == --read ]]; then
  orv_stamp
  orv_show "${NAMES[@]}"
  exit
fi

orv_read "${NAMES[@]}"
orv_stamp
if [[ ${orv[static_ip]} == yes ]]; then
  # The page does not require a field that was not drawn, so the script does.
  if [[ -z ${orv[address]} ]]; then
    orv_error address 'Enter the address, for example 192.168.1.20/24'
  elif [[ ${orv[gateway]} == "${orv[address]%/*}" ]]; then
    orv_error gateway 'The gateway must be another device than this one'
  fi
fi
orv_end
if [[ $1 == --write ]]; then
  orv_store conditions "${NAMES[@]}" && orv_changes
fi
