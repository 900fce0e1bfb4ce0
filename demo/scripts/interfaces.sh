#!/bin/bash
# The list of ports, one menu entry each: the port's name, then its text.
. "${BASH_SOURCE%/*}/lib.sh"

for i in "${!PORTS[@]}"; do
  port=${PORTS[i]}
  orv=()
  orv_load "port.$port"
  text=${PORT_LABEL[$port]}
  if [[ ${orv[port_use]} ]]; then
    text+=", ${orv[port_use]}"
  fi
  if [[ ${orv[port_on]} != True ]]; then
    text+=' (off)'
  fi
  orv_put "select_ports$i" "$port $text"
done
exit 0
