#!/bin/bash
. "${BASH_SOURCE%/*}/orv.bash"
PORTS=(wan lan1 lan2)
port=$2

if [[ $1 == --list ]]; then
  for i in "${!PORTS[@]}"; do
    orv_put "select_ports$i" "${PORTS[i]} Port ${PORTS[i]}"
  done
  exit
fi

# The sub-item comes from the request: only those in the list are accepted.
if ! orv_one_of "$port" "${PORTS[@]}"; then
  orv_fatal 'This device has no such port.'
  exit
fi

[[ $1 != --write ]] || orv_lock
orv[speed]=auto
orv_load "port.$port"
if [[ $1 == --read ]]; then
  orv_stamp
  orv_show speed note
  exit
fi

orv_read speed note
orv_stamp
orv_end
if [[ $1 == --write ]]; then
  orv_store "port.$port" speed note && orv_changes
fi
