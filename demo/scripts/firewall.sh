#!/bin/bash
# Firewall rules: a table whose rows have an order, given by the column "No.":
# the rows are sorted by it when they are stored, and shown as 10, 20, 30, so
# that a new one can be put between two others.
. "${BASH_SOURCE%/*}/lib.sh"

NAMES=(fr_policy fr_ping fr_log)
BOXES=(fr_ping fr_log)
COLUMNS=(fr_pos fr_off fr_do fr_from fr_proto fr_source fr_port)
TEXTS=(fr_pos fr_source fr_port)

orv_load firewall
if [[ $1 == --read ]]; then
  orv_stamp
  orv_tick "${BOXES[@]}"
  orv_rows "${TEXTS[@]}"
  orv_tick "${rows[@]/#/fr_off}"
  orv_show "${NAMES[@]}"
  orv_pack "${COLUMNS[@]}"
  orv_show "${cells[@]}"
  exit
fi

MAX_ROWS=64

is_source()
{
  ip_number "${1%%/*}" && { [[ $1 != */* ]] || orv_one_of "${1#*/}" {0..32}; }
}

# The page has checked the fields of an ordinary request; rows after a gap
# arrive unchecked, so formats are checked again.
check_row()
{
  local proto=${orv[fr_proto$1]} port=${orv[fr_port$1]}
  local source=${orv[fr_source$1]}
  if [[ ! ${orv[fr_pos$1]} =~ ^[0-9]{0,4}$ ]]; then
    orv_error fr_pos 'Enter a number up to 9999, or leave it blank' "$1"
  fi
  if ! orv_one_of "${orv[fr_do$1]}" allow drop reject; then
    orv_error fr_do 'Choose what happens' "$1"
  fi
  if ! orv_one_of "${orv[fr_from$1]}" wan lan any; then
    orv_error fr_from 'Choose where it comes from' "$1"
  fi
  if ! orv_one_of "$proto" any tcp udp icmp; then
    orv_error fr_proto 'Choose a protocol' "$1"
  elif [[ -n $port ]] && ! orv_one_of "$proto" tcp udp; then
    orv_error fr_proto 'Only TCP and UDP have ports' "$1"
  fi
  if [[ -n $port ]] && ! is_port "$port"; then
    orv_error fr_port 'Enter a port, 1 to 65535, or leave it blank' "$1"
  fi
  if [[ -n $source ]] && ! is_source "$source"; then
    orv_error fr_source 'Enter an address such as 192.168.1.0/24' "$1"
  fi
  if [[ ${orv[fr_off$1]} == False && ${orv[fr_do$1]} != allow &&
    ${orv[fr_from$1]} != wan && -z $source && $proto != udp ]] &&
    orv_one_of "$proto-$port" any- tcp- tcp-80 tcp-443; then
    orv_error fr_do 'This would lock you out of these pages' "$1"
  fi
}

# Sorts `rows` by their number; a row without one goes to the end.
sort_rows()
{
  local row number by_number=()
  for row in "${rows[@]}"; do
    number=${orv[fr_pos$row]}
    if [[ ! $number =~ ^[0-9]{1,4}$ ]]; then
      number=10000
    fi
    # A sparse array returns its values in the order of their indices.
    by_number[10#$number * 100 + row]=$row
  done
  rows=("${by_number[@]}")
}

orv_read "${NAMES[@]}" "${COLUMNS[@]/%/#}"
orv_stamp
orv_rows "${TEXTS[@]}"
orv_tick "${BOXES[@]}" "${rows[@]/#/fr_off}"
if ((${#rows[@]} > MAX_ROWS)); then
  orv_msg "Nothing was saved yet: the table has room for $MAX_ROWS rows."
fi
for row in "${rows[@]}"; do
  check_row "$row"
done
orv_end
if [[ $1 == --write ]]; then
  sort_rows
  orv_pack "${COLUMNS[@]}"
  for i in "${!rows[@]}"; do
    orv[fr_pos$i]=$((10 * i + 10))
  done
  orv_store firewall "${NAMES[@]}" "${cells[@]}" && saved 'Firewall changed'
fi
