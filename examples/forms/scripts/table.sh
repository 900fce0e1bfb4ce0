#!/bin/bash
. "${BASH_SOURCE%/*}/orv.bash"
COLUMNS=(route_use route_to route_via)

[[ $1 != --write ]] || orv_lock
orv_load table
if [[ $1 == --read ]]; then
  orv_stamp
  orv_rows route_to route_via
  orv_pack "${COLUMNS[@]}"
  orv_show "${cells[@]}"
  exit
fi

# check_row ROW: checks every cell, since the page's checks end at a blank row.
check_row()
{
  if [[ ! ${orv[route_to$1]} =~ ^[0-9.]{7,15}/[0-9]{1,2}$ ]]; then
    orv_error route_to 'Enter a network such as 10.1.0.0/16' "$1"
  elif [[ ! ${orv[route_via$1]} =~ ^[0-9.]{7,15}$ ]]; then
    orv_error route_via 'Enter an address such as 192.168.1.1' "$1"
  elif ! orv_one_of "${orv[route_use$1]}" yes no; then
    orv_error route_use 'Choose On or Off' "$1"
  fi
}

orv_read 'route_use#' 'route_to#' 'route_via#'
orv_stamp
orv_rows route_to route_via # rows in which one of these has a value
for row in "${rows[@]}"; do
  check_row "$row"
done
orv_end
if [[ $1 == --write ]]; then
  orv_pack "${COLUMNS[@]}" # closes gaps
  orv_store table "${cells[@]}" && orv_changes
fi
