#!/bin/bash
# How root logs in over SSH.  The password is stored as a hash, which is never
# reported to a page.
. "${BASH_SOURCE%/*}/orv.bash"

HASH='[$]6[$][A-Za-z0-9./]{1,16}[$][A-Za-z0-9./]{86}'

[[ $1 != --write ]] || orv_lock
orv_load users
if [[ $1 == --read ]]; then
  orv_stamp
  orv_show root_key
  orv_show_hash hash_root_password root_password
  exit
fi

orv_read root_key root_password
orv_stamp
typed=${orv[root_password]}
orv_take_hash hash_root_password "$HASH" root_password
if [[ $typed && ! $typed =~ ^[[:print:]]{10,80}$ ]]; then
  orv_error root_password 'Use 10 to 80 letters, digits and signs'
fi
orv_end
if [[ $1 == --write ]] && ((!orv_failed)); then
  if [[ $typed ]]; then # as input: everybody can see a command's arguments
    orv[hash_root_password]=$(openssl passwd -6 -stdin <<<"$typed") ||
      orv_msg 'The password could not be stored.'
    orv_secret root_password
  fi
  orv_secret hash_root_password
  # shellcheck disable=SC2034  # read by the library
  orv_label[hash_root_password]='Password of root'
  orv_store users root_key hash_root_password && orv_log_changes &&
    orv_changes && orv_act users
fi
