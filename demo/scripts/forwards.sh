#!/bin/bash
# Port forwards: a table whose rows the user adds and deletes.
. "${BASH_SOURCE%/*}/lib.sh"

COLUMNS=(fw_off fw_proto fw_port fw_address fw_to fw_note)
TEXTS=(fw_port fw_address fw_to fw_note)

if [[ $1 == --read ]]; then
  load forwards
  find_rows "${TEXTS[@]}"
  tick "${rows[@]/#/fw_off}"
  pack "${COLUMNS[@]}"
  show "${cells[@]}"
  exit
fi

MAX_ROWS=32

# The page has checked the fields of an ordinary request; rows behind a gap
# reach us unchecked, so formats are looked at once more.
check_row()
{
  local i=$1 row=$(($1 + 1)) proto key
  if ! is_port "${cfg[fw_port$i]}"; then
    fail fw_port "Row $row: enter the port that callers use, 1 to 65535"
  fi
  if ! ip_number "${cfg[fw_address$i]}"; then
    fail fw_address "Row $row: enter the address of a device in your network"
  fi
  if [[ ${cfg[fw_to$i]} ]] && ! is_port "${cfg[fw_to$i]}"; then
    fail fw_to "Row $row: enter a port, 1 to 65535, or leave it blank"
  fi
  if ! one_of "${cfg[fw_proto$i]}" tcp udp both; then
    fail fw_proto "Row $row: choose a protocol"
  fi
  if ! plain "${cfg[fw_note$i]}"; then
    fail fw_note "Row $row: use plain letters, digits and punctuation"
  fi
  if ((failed)); then
    return
  fi
  for proto in tcp udp; do
    if one_of "${cfg[fw_proto$i]}" $proto both; then
      key=$proto.$((10#${cfg[fw_port$i]}))
      if [[ ${seen[$key]} ]]; then
        fail fw_port \
          "Row $row: this port is forwarded in row ${seen[$key]} already"
        return
      fi
      seen[$key]=$row
    fi
  done
}

take "${COLUMNS[@]/%/#}"
find_rows "${TEXTS[@]}"
case $1 in
  --check)
    declare -A seen=()
    for row in "${rows[@]}"; do
      check_row "$row"
    done
    if ((${#rows[@]} > MAX_ROWS)); then
      fail_page "Nothing was saved yet: the device keeps $MAX_ROWS forwards."
    fi
    end_check
    ;;
  --write)
    tick "${rows[@]/#/fw_off}"
    pack "${COLUMNS[@]}"
    store forwards "${cells[@]}" && note 'Port forwards changed'
    ;;
  *) exit 1 ;;
esac
