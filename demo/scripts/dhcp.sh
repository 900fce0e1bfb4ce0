#!/bin/bash
# The local network: the device's own address, and the addresses that it
# assigns, some of them always to the same device (a table).
. "${BASH_SOURCE%/*}/lib.sh"

NAMES=(dh_address dh_on dh_first dh_last dh_lease dh_domain dh_dns)
COLUMNS=(ls_name ls_mac ls_address)

orv_load dhcp
if [[ $1 == --read ]]; then
  orv_stamp
  orv_tick dh_on
  orv_rows "${COLUMNS[@]}"
  orv_pack "${COLUMNS[@]}"
  orv_show "${NAMES[@]}" "${cells[@]}"
  exit
fi

MAX_ROWS=64

check_range()
{
  local first
  if ! in_network "${orv[dh_first]}"; then
    orv_error dh_first 'Enter an address of the network above'
    return
  fi
  first=$REPLY
  if ! in_network "${orv[dh_last]}"; then
    orv_error dh_last 'Enter an address of the network above'
  elif ((REPLY < first)); then
    orv_error dh_last 'The last address must not be before the first'
  elif ((own >= first && own <= REPLY)); then
    orv_error dh_first \
      "The device's own address must not be among those given away"
  fi
}

# once COLUMN ROW VALUE WHAT: marks the cell if an earlier row has the same
# value.
once()
{
  local key=$1.${3,,}
  if [[ ${seen[$key]} ]]; then
    orv_error "$1" "Row ${seen[$key]} has this $4 already" "$2"
  fi
  seen[$key]=$(($2 + 1))
}

# The page has checked the fields of an ordinary request; rows after a gap
# arrive unchecked, so formats are checked again.
check_row()
{
  local name=${orv[ls_name$1]} mac=${orv[ls_mac$1]}
  local address=${orv[ls_address$1]}
  if [[ ! $name =~ ^[A-Za-z0-9]([A-Za-z0-9-]{0,30}[A-Za-z0-9])?$ ]]; then
    orv_error ls_name 'Enter a name of letters, digits and hyphens' "$1"
  else
    once ls_name "$1" "$name" name
  fi
  if [[ ! ${mac,,} =~ ^([0-9a-f]{2}:){5}[0-9a-f]{2}$ ]]; then
    orv_error ls_mac 'Enter an address such as 52:54:00:12:ab:01' "$1"
  else
    once ls_mac "$1" "$mac" 'hardware address'
  fi
  if ! in_network "$address" || ((REPLY == own)); then
    orv_error ls_address 'Enter a free address of the network above' "$1"
  else
    once ls_address "$1" "$address" address
  fi
}

orv_read "${NAMES[@]}" "${COLUMNS[@]/%/#}"
orv_stamp
orv_tick dh_on
orv_rows "${COLUMNS[@]}"
declare -A seen=()
if check_network dh_address; then
  if [[ ${orv[dh_on]} == True ]]; then
    check_range
  fi
  for row in "${rows[@]}"; do
    check_row "$row"
  done
fi
if ((${#rows[@]} > MAX_ROWS)); then
  orv_msg "Nothing was saved yet: the table has room for $MAX_ROWS rows."
fi
orv_end
if [[ $1 == --write ]]; then
  orv_pack "${COLUMNS[@]}"
  orv_store dhcp "${NAMES[@]}" "${cells[@]}" && saved 'Address server changed'
fi
