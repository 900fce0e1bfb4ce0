#!/bin/bash
. "${BASH_SOURCE%/*}/orv.bash"

case $1 in
  --read)
    orv_load wifi
    orv_stamp
    orv_show ssid band
    orv_show_secrets wifi_passphrase
    ;;
  --check | --write)
    [[ $1 == --check ]] || orv_lock
    orv_load wifi
    orv_read ssid wifi_passphrase band
    orv_stamp
    orv_secret wifi_passphrase
    if [[ ${orv[band]} == high && -z ${orv[wifi_passphrase]} ]]; then
      orv_error wifi_passphrase 'Enter a passphrase'
    fi
    orv_end
    if [[ $1 == --write ]]; then
      orv_store wifi ssid wifi_passphrase band && orv_log_changes
    fi
    ;;
esac
