#!/bin/bash
. "${BASH_SOURCE%/*}/lib.sh"
NAMES=(static_ip address gateway)

case $1 in
  --read)
    cfg[static_ip]=no
    load address "${NAMES[@]}"
    show "${NAMES[@]}"
    ;;
  --check)
    take "${NAMES[@]}"
    if [[ ${cfg[static_ip]} == yes && ${cfg[gateway]} == "${cfg[address]%/*}" ]]
    then
      fail gateway 'The gateway must be another device than this one'
      fail msg 'Nothing was saved. Please look at the marked field.'
    fi
    ;;
  --write)
    take "${NAMES[@]}"
    store address "${NAMES[@]}"
    ;;
esac
