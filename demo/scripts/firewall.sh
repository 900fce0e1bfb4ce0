#!/bin/bash
# Firewall rules: a table whose rows have an order.  The column "No." says it:
# the rows are sorted by it when they are stored, and shown as 10, 20, 30, so
# that a new one can be put between two others.
. "${BASH_SOURCE%/*}/lib.sh"

NAMES=(fr_policy fr_ping fr_log)
BOXES=(fr_ping fr_log)
COLUMNS=(fr_pos fr_off fr_do fr_from fr_proto fr_source fr_port)
TEXTS=(fr_pos fr_source fr_port)

if [[ $1 == --read ]]; then
  load firewall
  tick "${BOXES[@]}"
  find_rows "${TEXTS[@]}"
  tick "${rows[@]/#/fr_off}"
  for row in "${rows[@]}"; do
    cfg[fr_pos$row]=$((10 * row + 10))
  done
  show "${NAMES[@]}"
  pack "${COLUMNS[@]}"
  show "${cells[@]}"
  exit
fi

MAX_ROWS=64

# The page has checked the fields of an ordinary request; rows behind a gap
# reach us unchecked, so formats are looked at once more.
check_row()
{
  local row=$(($1 + 1)) proto=${cfg[fr_proto$1]} port=${cfg[fr_port$1]}
  local source=${cfg[fr_source$1]}
  if [[ ! ${cfg[fr_pos$1]} =~ ^[0-9]{0,4}$ ]]; then
    fail fr_pos "Row $row: enter a number up to 9999, or leave it blank"
  fi
  if ! one_of "${cfg[fr_do$1]}" allow drop reject; then
    fail fr_do "Row $row: choose what happens"
  fi
  if ! one_of "${cfg[fr_from$1]}" wan lan any; then
    fail fr_from "Row $row: choose where it comes from"
  fi
  if ! one_of "$proto" any tcp udp icmp; then
    fail fr_proto "Row $row: choose a protocol"
  elif [[ -n $port ]] && ! one_of "$proto" tcp udp; then
    fail fr_proto "Row $row: only TCP and UDP have ports"
  fi
  if [[ -n $port ]] && ! is_port "$port"; then
    fail fr_port "Row $row: enter a port, 1 to 65535, or leave it blank"
  fi
  if [[ -n $source ]] && ! ip_number "${source%%/*}"; then
    fail fr_source "Row $row: enter an address such as 192.168.1.0/24"
  fi
  if [[ ${cfg[fr_off$1]} == False && ${cfg[fr_do$1]} != allow &&
    ${cfg[fr_from$1]} != wan && -z $source && $proto != udp ]] &&
    one_of "$proto-$port" any- tcp- tcp-80 tcp-443; then
    fail fr_do "Row $row: this would lock you out of these pages"
  fi
}

# Sorts `rows` by their number; a row without one goes to the end.
sort_rows()
{
  local row number by_number=()
  for row in "${rows[@]}"; do
    number=${cfg[fr_pos$row]}
    if [[ ! $number =~ ^[0-9]{1,4}$ ]]; then
      number=10000
    fi
    # A sparse array gives its values in the order of their indices.
    by_number[10#$number * 100 + row]=$row
  done
  rows=("${by_number[@]}")
}

take_all()
{
  take "${NAMES[@]}" "${COLUMNS[@]/%/#}"
  find_rows "${TEXTS[@]}"
  tick "${BOXES[@]}" "${rows[@]/#/fr_off}"
}

case $1 in
  --check)
    take_all
    if ((${#rows[@]} > MAX_ROWS)); then
      fail_page "Nothing was saved yet: the table has room for $MAX_ROWS rows."
    fi
    for row in "${rows[@]}"; do
      check_row "$row"
    done
    end_check
    ;;
  --write)
    load firewall
    take_all
    sort_rows
    pack "${COLUMNS[@]}"
    store firewall "${NAMES[@]}" "${cells[@]}" && note 'Firewall changed'
    ;;
  *) exit 1 ;;
esac
