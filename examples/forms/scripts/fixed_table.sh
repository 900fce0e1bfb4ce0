#!/bin/bash
. "${BASH_SOURCE%/*}/orv.bash"
NAMES=(socket_on0 socket_note0 socket_on1 socket_note1)

[[ $1 != --write ]] || orv_lock
orv_load fixed_table
if [[ $1 == --read ]]; then
  orv_stamp
  orv_put socket0 Left
  orv_put socket1 Right
  orv_tick socket_on0 socket_on1
  orv_show "${NAMES[@]}"
  exit
fi

orv_read "${NAMES[@]}"
orv_stamp
orv_tick socket_on0 socket_on1
orv_end
if [[ $1 == --write ]]; then
  orv_store fixed_table "${NAMES[@]}" && orv_changes
fi
