#!/bin/bash
# What the device is called, where it stands, and its clock.
#
# The name has a file of its own, since the page of the address shows it, too;
# so have the time server and its switch, which the page of the services shows.
. "${BASH_SOURCE%/*}/lib.sh"

NAMES=(place contact time_zone ntp_server2 ntp_hours ntp_answer)
CLOCK=(ntp_on ntp_server)
BOXES=(ntp_on ntp_answer)
# The choices of the time zone: the value, then its text.
ZONES=(
  'UTC Universal time (UTC)'
  'Pacific/Honolulu Honolulu'
  'America/Los_Angeles Los Angeles, Vancouver'
  'America/Denver Denver, Calgary'
  'America/Chicago Chicago, Mexico City'
  'America/New_York New York, Toronto'
  'America/Sao_Paulo Sao Paulo, Rio de Janeiro'
  'Europe/London London, Dublin, Lisbon'
  'Europe/Berlin Berlin, Paris, Rome'
  'Europe/Helsinki Helsinki, Athens, Kyiv'
  'Africa/Nairobi Nairobi, Addis Ababa'
  'Asia/Dubai Dubai, Abu Dhabi'
  'Asia/Kolkata Kolkata, Delhi'
  'Asia/Shanghai Beijing, Singapore'
  'Asia/Tokyo Tokyo, Osaka'
  'Australia/Sydney Sydney, Melbourne'
  'Pacific/Auckland Auckland, Wellington'
)

if [[ $1 == --read ]]; then
  load name
  load clock
  load system
  tick "${BOXES[@]}"
  show host_name "${NAMES[@]}" "${CLOCK[@]}"
  export TZ=${cfg[time_zone]}
  printf 'clock="%(%H:%M, %Y-%m-%d)T"\n' -1
  for i in "${!ZONES[@]}"; do
    printf 'select_zones%d="%s"\n' "$i" "${ZONES[i]}"
  done
  exit
fi

check_system()
{
  if [[ ${cfg[ntp_on]} == True && -z ${cfg[ntp_server]} ]]; then
    fail ntp_server 'Enter a time server, or switch the time service off'
  elif [[ -z ${cfg[ntp_server]} && -n ${cfg[ntp_server2]} ]]; then
    fail ntp_server 'Fill in the first time server before the second'
  elif [[ -n ${cfg[ntp_server]} &&
    ${cfg[ntp_server],,} == "${cfg[ntp_server2],,}" ]]; then
    fail ntp_server2 'Enter another server than the first, or none'
  fi
  # Checks see no expert view: a blank field there reaches us unnoticed.
  if [[ -z ${cfg[ntp_hours]} ]]; then
    fail ntp_hours 'Enter a number from 1 to 168, usually 12'
  fi
  if [[ ${cfg[ntp_answer]} == True && ${cfg[ntp_on]} == False ]]; then
    fail ntp_answer 'A device whose clock nobody sets cannot tell the time'
  fi
  # The page does not compare a dynamic list's value with its entries.
  if ! one_of "${cfg[time_zone]}" "${ZONES[@]%% *}"; then
    fail time_zone 'Choose a time zone from the list'
  fi
}

case $1 in
  --check)
    take "${NAMES[@]}" "${CLOCK[@]}"
    tick "${BOXES[@]}"
    check_system
    end_check
    ;;
  --write)
    load system
    take host_name "${NAMES[@]}" "${CLOCK[@]}"
    tick "${BOXES[@]}"
    store name host_name && store clock "${CLOCK[@]}" &&
      store system "${NAMES[@]}" && note 'Name, place and time changed'
    ;;
  *) exit 1 ;;
esac
