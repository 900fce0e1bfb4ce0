#!/bin/bash
. "${BASH_SOURCE%/*}/orv.bash"

# A name, then its label.
servers=("ams Amsterdam" "fra Frankfurt")

is_server()
{
  local line
  for line in "${servers[@]}"; do
    if [[ ${line%% *} == "$1" ]]; then
      return 0
    fi
  done
  return 1
}

if [[ $1 == --write ]]; then orv_lock; fi
orv_load vpn
orv_load vpn.key
if [[ $1 == --read ]]; then
  orv_stamp
  orv_show vpn_server vpn_user
  orv_tick vpn_on
  orv_show vpn_on
  for ((i = 0; i < ${#servers[@]}; i++)); do
    orv_put "select_servers$i" "${servers[i]}"
  done
  orv_show_secrets vpn_psk
  exit
fi

orv_read vpn_server vpn_user vpn_psk vpn_on
orv_stamp
orv_secret vpn_psk
orv_tick vpn_on
is_server "${orv[vpn_server]}" ||
  orv_error vpn_server 'Choose a server from the list'
[[ ${orv[vpn_psk]} ]] ||
  orv_error vpn_psk 'No key is stored yet; enter one'
orv_end
[[ $1 == --write ]] &&
  orv_store vpn.key vpn_psk -- vpn vpn_server vpn_user vpn_on &&
  orv_log_changes &&
  orv_changes
exit 0
