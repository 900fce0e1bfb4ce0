#!/bin/bash
# Port forwards: a table whose rows the user adds and deletes.
. "${BASH_SOURCE%/*}/lib.sh"

COLUMNS=(fw_off fw_proto fw_port fw_address fw_to fw_note)
TEXTS=(fw_port fw_address fw_to fw_note)

orv_load forwards
if [[ $1 == --read ]]; then
  orv_stamp
  orv_rows "${TEXTS[@]}"
  orv_tick "${rows[@]/#/fw_off}"
  orv_pack "${COLUMNS[@]}"
  orv_show "${cells[@]}"
  exit
fi

MAX_ROWS=32

# The page has checked the fields of an ordinary request; rows after a gap
# arrive unchecked, so formats are checked again.
check_row()
{
  local i=$1 proto key
  if ! is_port "${orv[fw_port$i]}"; then
    orv_error fw_port 'Enter the port that callers use, 1 to 65535' "$i"
  fi
  if ! ip_number "${orv[fw_address$i]}"; then
    orv_error fw_address 'Enter the address of a device in your network' "$i"
  fi
  if [[ ${orv[fw_to$i]} ]] && ! is_port "${orv[fw_to$i]}"; then
    orv_error fw_to 'Enter a port, 1 to 65535, or leave it blank' "$i"
  fi
  if ! orv_one_of "${orv[fw_proto$i]}" tcp udp both; then
    orv_error fw_proto 'Choose a protocol' "$i"
  fi
  if ((${#orv[fw_note$i]} > 60)); then
    orv_error fw_note 'Use at most 60 letters, digits and signs' "$i"
  fi
  if ((orv_failed)); then
    return
  fi
  for proto in tcp udp; do
    if orv_one_of "${orv[fw_proto$i]}" $proto both; then
      key=$proto.$((10#${orv[fw_port$i]}))
      if [[ ${seen[$key]} ]]; then
        orv_error fw_port \
          "This port is forwarded in row ${seen[$key]} already" "$i"
        return
      fi
      seen[$key]=$((i + 1))
    fi
  done
}

orv_read "${COLUMNS[@]/%/#}"
orv_stamp
orv_rows "${TEXTS[@]}"
orv_tick "${rows[@]/#/fw_off}"
declare -A seen=()
for row in "${rows[@]}"; do
  check_row "$row"
done
if ((${#rows[@]} > MAX_ROWS)); then
  orv_msg "Nothing was saved yet: the device keeps $MAX_ROWS forwards."
fi
orv_end
if [[ $1 == --write ]]; then
  orv_pack "${COLUMNS[@]}"
  orv_store forwards "${cells[@]}" && saved 'Port forwards changed'
fi
