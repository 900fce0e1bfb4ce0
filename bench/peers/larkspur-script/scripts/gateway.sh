#!/bin/bash
# The settings of the gateway.  The page checks single fields; the script checks
# incomplete rows and rules between fields.
. "${BASH_SOURCE%/*}/orv.bash"

NAMES=(host_name location contact addressing ip_address prefix gateway dns1 dns2
  ntp log_level ssh)
COLUMNS=(fw_proto fw_port fw_to fw_note)
TEXTS=(fw_port fw_to fw_note)

if [[ $1 == --write ]]; then
  orv_lock # before anything is loaded
fi
orv_load gateway
if [[ $1 == --read ]]; then
  orv_stamp
  orv_tick ssh
  orv_rows "${TEXTS[@]}"
  orv_pack "${COLUMNS[@]}"
  orv_show "${NAMES[@]}" "${cells[@]}"
  exit
fi

MAX_ROWS=32

# Rows after a gap arrive unchecked, so formats are checked again.
check_row()
{
  local i=$1 proto key
  if ! is_port "${orv[fw_port$i]}"; then
    orv_error fw_port 'Enter a port, 1 to 65535' "$i"
    return
  fi
  if ! is_ip "${orv[fw_to$i]}"; then
    orv_error fw_to 'Enter an address such as 192.168.1.50' "$i"
  fi
  if ! orv_one_of "${orv[fw_proto$i]}" tcp udp both; then
    orv_error fw_proto 'Choose a protocol' "$i"
  fi
  if ((${#orv[fw_note$i]} > 40)); then
    orv_error fw_note 'Use 40 characters at most' "$i"
  fi
  for proto in tcp udp; do
    if orv_one_of "${orv[fw_proto$i]}" $proto both; then
      key=$proto.$((10#${orv[fw_port$i]}))
      if [[ ${seen[$key]} ]]; then
        orv_error fw_port "Row ${seen[$key]} has this port already" "$i"
        return
      fi
      seen[$key]=$((i + 1))
    fi
  done
}

# Patterns, since a regular expression costs ten times as much.
is_port()
{
  [[ ${#1} -le 5 && $1 == [0-9]* && $1 != *[!0-9]* ]] &&
    ((10#$1 >= 1 && 10#$1 <= 65535))
}

is_ip()
{
  local IFS=. byte
  [[ ${#1} -le 15 && $1 != *[!0-9.]* && $1 != *. ]] || return
  # shellcheck disable=SC2086  # words
  set -- $1
  (($# == 4)) || return
  for byte; do
    [[ $byte && $byte != 0?* && $byte -le 255 ]] || return
  done
}

orv_read "${NAMES[@]}" "${COLUMNS[@]/%/#}"
orv_stamp
orv_tick ssh
if ! orv_one_of "${orv[addressing]}" yes no; then
  orv_error addressing 'Choose one of the entries'
elif [[ ${orv[addressing]} == yes ]]; then
  if [[ -z ${orv[ip_address]} ]]; then
    orv_error ip_address 'A static address is needed'
  elif [[ ${orv[gateway]} == "${orv[ip_address]}" ]]; then
    orv_error gateway 'The gateway must be another device than this one'
  fi
  if [[ -z ${orv[prefix]} ]]; then
    orv_error prefix 'Enter a number from 1 to 30'
  fi
fi
if ! orv_one_of "${orv[log_level]}" error notice debug; then
  orv_error log_level 'Choose one of the entries'
fi
if [[ ${orv[dns2]} && -z ${orv[dns1]} ]]; then
  orv_error dns1 'Fill in the first name server before the second'
fi
orv_rows "${TEXTS[@]}"
declare -A seen=()
for row in "${rows[@]}"; do
  check_row "$row"
done
if ((${#rows[@]} > MAX_ROWS)); then
  orv_msg "The device keeps $MAX_ROWS forwards."
fi
orv_end
orv_pack "${COLUMNS[@]}"
orv_store gateway "${NAMES[@]}" "${cells[@]}" && orv_changes
