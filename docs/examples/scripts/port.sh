#!/bin/bash
. "${BASH_SOURCE%/*}/lib.sh"
PORTS=(wan lan1 lan2)
port=$2

if [[ $1 == --list ]]; then
  for i in "${!PORTS[@]}"; do
    echo "select_ports$i=\"${PORTS[i]} Port ${PORTS[i]}\""
  done
  exit
fi

# The sub-item comes with the request: it counts only as one of the list.
if ! matches "$port" "${PORTS[@]}"; then
  fail msg 'This device has no such port.'
  fail fatal yes
  exit
fi

case $1 in
  --read)
    cfg=([speed]=auto [mac]=02:00:00:00:00:01)
    load "port.$port" speed note
    show speed note mac
    ;;
  --check) take speed note ;;
  --write)
    take speed note
    store "port.$port" speed note
    ;;
esac
