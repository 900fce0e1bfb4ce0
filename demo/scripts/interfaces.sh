#!/bin/bash
# The list of ports, one menu entry each: the port's name, then its text.
. "${BASH_SOURCE%/*}/lib.sh"

case $1 in
  --read)
    for i in "${!PORTS[@]}"; do
      port=${PORTS[i]}
      cfg=()
      load "port.$port"
      text=${PORT_LABEL[$port]}
      if [[ ${cfg[port_use]} ]]; then
        text+=", ${cfg[port_use]}"
      fi
      if [[ ${cfg[port_on]} != True ]]; then
        text+=' (off)'
      fi
      printf 'select_ports%d="%s %s"\n' "$i" "$port" "$text"
    done
    ;;
  *) exit 1 ;;
esac
