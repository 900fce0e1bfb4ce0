#!/bin/bash
# One network port, named by the sub-item.
# shellcheck disable=SC2030,SC2031  # a subshell looks at the other ports
. "${BASH_SOURCE%/*}/lib.sh"

NAMES=(port_on port_use port_speed port_vlan port_mtu port_pause)
port=$3

# The sub-item comes from a link and becomes part of a file name.
if ! orv_one_of "$port" "${PORTS[@]}"; then
  orv_fatal 'There is no such port. Choose one from the list of ports.'
  exit
fi

orv_load "port.$port"
if [[ $1 == --read ]]; then
  orv_stamp
  orv_tick port_on port_pause
  orv[port_label]=${PORT_LABEL[$port]}
  orv_show port_label "${NAMES[@]}"
  exit
fi

# Whether another port is switched on.  It runs in a subshell, since the other
# ports' values have the same names.
other_port_on()
(
  for other in "${PORTS[@]}"; do
    orv=()
    if [[ $other != "$port" ]] && orv_load "port.$other" &&
      [[ ${orv[port_on]} == True ]]; then
      exit 0
    fi
  done
  exit 1
)

orv_read "${NAMES[@]}"
orv_stamp
orv_tick port_on port_pause
# During checks the expert view is off: a blank field there was not reported.
if [[ -z ${orv[port_mtu]} ]]; then
  orv_error port_mtu 'Enter a number from 576 to 9000, usually 1500'
fi
if [[ ${orv[port_on]} == False ]] && ! other_port_on; then
  orv_error port_on 'One port must stay on, or nobody could reach the device'
fi
orv_end
if [[ $1 == --write ]]; then
  orv_store "port.$port" "${NAMES[@]}" &&
    saved "Port ${PORT_LABEL[$port]} changed"
fi
