#!/bin/bash
# A password that is only compared: only its hash is stored.
. "${BASH_SOURCE%/*}/orv.bash"

[[ $1 != --write ]] || orv_lock
orv_load password
if [[ $1 == --read ]]; then
  orv_stamp
  orv_show_hash admin_password # to a backup, never to a page
  exit
fi

orv_read admin_password
orv_stamp
typed=${orv[admin_password]}
orv_take_hash admin_password '[$]6[$][A-Za-z0-9./]+[$][A-Za-z0-9./]{86}'
orv_secret admin_password # blank means the stored hash
if [[ -z ${orv[admin_password]} ]]; then
  orv_error admin_password 'There is none yet. Enter 10 to 80 characters'
fi
orv_end
if [[ $1 == --write ]] && ((!orv_failed)); then
  if [[ $typed ]]; then # as input: everybody can see a command's arguments
    orv[admin_password]=$(openssl passwd -6 -stdin <<<"$typed") ||
      orv_msg 'The password could not be stored.'
  fi
  orv_store password admin_password && orv_changes
fi
