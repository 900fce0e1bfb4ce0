#!/bin/bash
# One network port; the sub-item says which.
. "${BASH_SOURCE%/*}/lib.sh"

NAMES=(port_on port_use port_speed port_vlan port_mtu port_pause)
port=$3

# The sub-item comes from a link and becomes part of a file name.
if ! one_of "$port" "${PORTS[@]}"; then
  echo 'error_msg=There is no such port. Choose one from the list of ports.'
  exit
fi

if [[ $1 == --read ]]; then
  load "port.$port"
  tick port_on port_pause
  cfg[port_label]=${PORT_LABEL[$port]}
  show port_label "${NAMES[@]}"
  exit
fi

# Whether a port but this one is switched on.
other_port_on()
{
  local other
  for other in "${PORTS[@]}"; do
    if [[ $other != "$port" ]]; then
      cfg=()
      load "port.$other"
      if [[ ${cfg[port_on]} == True ]]; then
        return 0
      fi
    fi
  done
  return 1
}

case $1 in
  --check)
    take "${NAMES[@]}"
    tick port_on
    # Checks see no expert view: a blank field there reaches us unnoticed.
    if [[ -z ${cfg[port_mtu]} ]]; then
      fail port_mtu 'Enter a number from 576 to 9000, usually 1500'
    fi
    if [[ ${cfg[port_on]} == False ]] && ! other_port_on; then
      fail port_on 'One port must stay on, or nobody could reach the device'
    fi
    end_check
    ;;
  --write)
    load "port.$port"
    take "${NAMES[@]}"
    tick port_on port_pause
    store "port.$port" "${NAMES[@]}" &&
      note "Port ${PORT_LABEL[$port]} changed"
    ;;
  *) exit 1 ;;
esac
