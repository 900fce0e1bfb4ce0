#!/bin/bash
# Restart, which this demo only pretends, and the settings as shipped.
#
# There is nothing to change on this page, so it asks to be submitted always:
# without that, the check of the box below would never run.
. "${BASH_SOURCE%/*}/lib.sh"

if [[ $1 == --read ]]; then
  printf '%s\n' 'always_submit="True"' 'rb_what="restart"' 'rb_sure="False"'
  exit
fi

take rb_what rb_sure
tick rb_sure
case $1 in
  --check)
    if [[ ${cfg[rb_sure]} == False ]]; then
      fail rb_sure 'Tick this box if you mean it'
    fi
    end_check
    ;;
  --write)
    case ${cfg[rb_sure]}/${cfg[rb_what]} in
      True/restart)
        printf -v 'cfg[rb_last]' '%(%Y-%m-%d %H:%M:%S)T' -1
        store reboot rb_last || exit
        note 'Restarted'
        echo 'saved_note="The device restarts now (not really: a demo)."'
        ;;
      True/shipped)
        # A setting without a file of its own is read as shipped.
        rm -f -- "$STATE"/*
        note 'Settings as shipped put back'
        echo 'saved_note="All settings are those that the device came with."'
        ;;
      *) exit 1 ;;
    esac
    ;;
  *) exit 1 ;;
esac
