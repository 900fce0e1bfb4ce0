#!/bin/bash
# What the device offers to others: remote access, time, log.
. "${BASH_SOURCE%/*}/lib.sh"

NAMES=(ssh_on ssh_port ssh_key_only mdns_on ntp_on ntp_server time_zone
  log_level log_server)
BOXES=(ssh_on ssh_key_only mdns_on ntp_on)
# The choices of the time zone: the value, then its text.
ZONES=(
  'UTC Universal time (UTC)'
  'Europe/London London, Dublin, Lisbon'
  'Europe/Berlin Berlin, Paris, Rome'
  'Europe/Helsinki Helsinki, Athens, Kyiv'
  'America/New_York New York, Toronto'
  'America/Los_Angeles Los Angeles, Vancouver'
  'Asia/Kolkata Kolkata, Delhi'
  'Asia/Tokyo Tokyo, Osaka'
  'Australia/Sydney Sydney, Melbourne'
)

case $1 in
  --read)
    load services "${NAMES[@]}"
    tick "${BOXES[@]}"
    show "${NAMES[@]}"
    for i in "${!ZONES[@]}"; do
      printf 'select_zones%d="%s"\n' "$i" "${ZONES[i]}"
    done
    ;;
  --check)
    take "${NAMES[@]}"
    tick "${BOXES[@]}"
    if [[ ${cfg[ntp_on]} == True && -z ${cfg[ntp_server]} ]]; then
      fail ntp_server 'Enter a time server, or switch the time service off'
    fi
    # Checks see no expert view: a blank field there reaches us unnoticed.
    if [[ -z ${cfg[ssh_port]} ]]; then
      fail ssh_port 'Enter a number from 1 to 65535, usually 22'
    fi
    # The page does not compare a dynamic list's value with its entries.
    if ! one_of "${cfg[time_zone]}" "${ZONES[@]%% *}"; then
      fail time_zone 'Choose a time zone from the list'
    fi
    end_check
    ;;
  --write)
    load services "${NAMES[@]}"
    take "${NAMES[@]}"
    tick "${BOXES[@]}"
    store services "${NAMES[@]}"
    ;;
  *) exit 1 ;;
esac
