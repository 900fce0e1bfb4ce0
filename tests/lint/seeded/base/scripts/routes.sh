#!/bin/bash
. "${BASH_SOURCE%/*}/orv.bash"
COLUMNS=(route_use route_to route_via)

[[ $1 != --write ]] || orv_lock
orv_load routes
if [[ $1 == --read ]]; then
  orv_stamp
  orv_rows route_to route_via
  orv_pack "${COLUMNS[@]}"
  orv_show "${cells[@]}"
  exit
fi

# check_row NUMBER: whether a row has both its texts.
check_row()
{
  local row="Row $(($1 + 1))"
  if [[ ! ${orv[route_to$1]} =~ ^[0-9.]{7,15}/[0-9]{1,2}$ ]]; then
    orv_error route_to "$row: enter a network such as 10.1.0.0/16"
  elif [[ ! ${orv[route_via$1]} =~ ^[0-9.]{7,15}$ ]]; then
    orv_error route_via "$row: enter a gateway such as 10.0.0.1"
  elif ! orv_one_of "${orv[route_use$1]}" yes no; then
    orv_error route_use "$row: choose On or Off"
  fi
}

orv_read 'route_use#' 'route_to#' 'route_via#'
orv_stamp
orv_rows route_to route_via
for row in "${rows[@]}"; do
  check_row "$row"
done
orv_end
if [[ $1 == --write ]]; then
  orv_pack "${COLUMNS[@]}"
  orv_store routes "${cells[@]}" && orv_changes
fi
