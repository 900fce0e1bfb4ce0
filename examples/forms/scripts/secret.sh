#!/bin/bash
. "${BASH_SOURCE%/*}/orv.bash"

[[ $1 != --write ]] || orv_lock
orv_load secret
if [[ $1 == --read ]]; then
  orv_stamp
  orv_show ssid # never the passphrase: the page contains all reported values
  orv_show_secrets wifi_passphrase # to a backup
  exit
fi

orv_read ssid wifi_passphrase
orv_stamp
orv_secret wifi_passphrase # blank means the stored one
if [[ -z ${orv[wifi_passphrase]} ]]; then
  orv_error wifi_passphrase 'There is none yet. Enter 8 to 63 characters'
fi
orv_end
if [[ $1 == --write ]]; then
  orv_store secret ssid wifi_passphrase && orv_changes
fi
