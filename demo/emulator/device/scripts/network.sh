#!/bin/bash
# The device's address.  A wrong one must not lock anybody out: the change goes
# back unless somebody keeps it in time, at the new address.
. "${BASH_SOURCE%/*}/lib.sh"

NAMES=(static_ip ip_address gateway dns)
PATIENCE=90 # seconds within which a new address must be kept
APPLYING=30 # seconds that setting it may take

orv_load network
if [[ $1 == --read ]]; then
  orv_stamp
  orv_show "${NAMES[@]}"
  orv_put wait_confirm '' # the page counts down if the browser runs scripts
  exit
fi

check_gateway()
{
  if ! ip_number "${orv[gateway]}"; then
    orv_error gateway 'This is not an address. Enter one such as 192.168.1.1'
  elif ((REPLY == own)); then
    orv_error gateway 'The gateway must be another device than this one'
  elif ! in_network "${orv[gateway]}"; then
    orv_error gateway 'The gateway must be in the same network as the address'
  fi
}

orv_read "${NAMES[@]}"
orv_stamp
if ! orv_one_of "${orv[static_ip]}" no yes; then
  orv_error static_ip 'Choose how the device gets its address'
elif [[ ${orv[static_ip]} == yes ]]; then
  if check_network ip_address && [[ ${orv[gateway]} ]]; then
    check_gateway
  fi
fi
orv_end
if [[ $1 != --write ]]; then
  exit
fi

orv_guard $PATIENCE orv_act network $APPLYING
if orv_store network "${NAMES[@]}"; then
  orv_log_changes
  orv_changes
  where='the address that your network gives it'
  if [[ ${orv[static_ip]} == yes ]]; then
    where=https://${orv[ip_address]%/*}/
  fi
  orv_put u_saved_address "$where"
  orv_put wait_confirm $PATIENCE
fi
