#!/bin/bash
. "${BASH_SOURCE%/*}/orv.bash"

[[ $1 != --write ]] || orv_lock
orv_load hostname
if [[ $1 == --read ]]; then
  orv_stamp
  orv_show hostname
  exit
fi

orv_read hostname
orv_stamp
orv_end
if [[ $1 == --write ]]; then
  orv_store hostname hostname && orv_changes && orv_act hostname
fi
