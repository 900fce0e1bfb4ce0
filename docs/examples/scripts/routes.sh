#!/bin/bash
. "${BASH_SOURCE%/*}/lib.sh"
# The cells of row 0 to 99: the column's name and the row's number.
COLUMNS=(route_use route_to route_via)
CELLS=('route_@(use|to|via)@([0-9]|[1-9][0-9])')
rows=() names=()

# find_rows: the numbers of the rows that are in use.
find_rows()
{
  local row
  for ((row = 0; row < 100; row++)); do
    if [[ -n ${cfg[route_to$row]}${cfg[route_via$row]} ]]; then
      rows+=("$row")
    fi
  done
}

# check_row NUMBER: the whole row, since the page's own checks end at the first
# blank one.
check_row()
{
  local row="Row $(($1 + 1))"
  if [[ ! ${cfg[route_to$1]} =~ ^[0-9.]{7,15}/[0-9]{1,2}$ ]]; then
    fail route_to "$row: enter a network such as 10.1.0.0/16"
  elif [[ ! ${cfg[route_via$1]} =~ ^[0-9.]{7,15}$ ]]; then
    fail route_via "$row: enter an address such as 192.168.1.1"
  elif ! matches "${cfg[route_use$1]}" yes no; then
    fail route_use "$row: choose On or Off"
  fi
}

# close_up: numbers the rows anew, without the blank ones, and lists the names.
close_up()
{
  local i column
  for i in "${!rows[@]}"; do
    for column in "${COLUMNS[@]}"; do
      cfg[$column$i]=${cfg[$column${rows[i]}]}
      names+=("$column$i")
    done
  done
}

case $1 in
  --read) load routes "${CELLS[@]}" ;;
  --check | --write) take "${CELLS[@]}" ;;
esac
find_rows
case $1 in
  --read)
    close_up
    show "${names[@]}"
    ;;
  --check)
    for row in "${rows[@]}"; do
      check_row "$row"
    done
    ;;
  --write)
    close_up
    store routes "${names[@]}"
    ;;
esac
