#!/bin/bash
. "${BASH_SOURCE%/*}/orv.bash"

case $1 in
  --read)
    orv_load clock
    orv_stamp
    orv_show server
    ;;
  --write)
    orv_lock
    orv_load clock
    orv_read server
    orv_stamp
    orv_store clock server && orv_changes
    ;;
esac
