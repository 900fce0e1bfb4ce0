#!/bin/bash
# What the device offers to others, and whom it tells what happens.
. "${BASH_SOURCE%/*}/lib.sh"

NAMES=(ssh_on ssh_port ssh_key_only mdns_on alert_on alert_mail log_level
  log_server)
CLOCK=(ntp_on ntp_server)
BOXES=(ssh_on ssh_key_only mdns_on alert_on ntp_on)

if [[ $1 == --read ]]; then
  load services
  load clock
  tick "${BOXES[@]}"
  show "${NAMES[@]}" "${CLOCK[@]}"
  exit
fi

case $1 in
  --check)
    take "${NAMES[@]}" "${CLOCK[@]}"
    tick "${BOXES[@]}"
    if [[ ${cfg[ntp_on]} == True && -z ${cfg[ntp_server]} ]]; then
      fail ntp_server 'Enter a time server, or switch the time service off'
    fi
    if [[ ${cfg[alert_on]} == True && -z ${cfg[alert_mail]} ]]; then
      fail alert_mail 'Enter a mail address, or switch the alerts off'
    fi
    # Checks see no expert view: a blank field there reaches us unnoticed.
    if [[ -z ${cfg[ssh_port]} ]]; then
      fail ssh_port 'Enter a number from 1 to 65535, usually 22'
    fi
    end_check
    ;;
  --write)
    load services
    take "${NAMES[@]}" "${CLOCK[@]}"
    tick "${BOXES[@]}"
    store services "${NAMES[@]}" && store clock "${CLOCK[@]}" &&
      note 'Services changed'
    ;;
  *) exit 1 ;;
esac
