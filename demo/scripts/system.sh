#!/bin/bash
# The device's location, and its clock.
. "${BASH_SOURCE%/*}/lib.sh"

NAMES=(place contact time_zone ntp_on ntp_server ntp_server2 ntp_hours
  ntp_answer)
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

orv_load system
if [[ $1 == --read ]]; then
  orv_stamp
  orv_tick "${BOXES[@]}"
  orv_show "${NAMES[@]}"
  export TZ=${orv[time_zone]}
  printf 'clock="%(%H:%M, %Y-%m-%d)T"\n' -1
  for i in "${!ZONES[@]}"; do
    printf 'select_zones%d="%s"\n' "$i" "${ZONES[i]}"
  done
  exit
fi

check_system()
{
  if [[ ${orv[ntp_on]} == True && -z ${orv[ntp_server]} ]]; then
    orv_error ntp_server 'Enter a time server, or switch the time service off'
  elif [[ -z ${orv[ntp_server]} && -n ${orv[ntp_server2]} ]]; then
    orv_error ntp_server 'Fill in the first time server before the second'
  elif [[ -n ${orv[ntp_server]} &&
    ${orv[ntp_server],,} == "${orv[ntp_server2],,}" ]]; then
    orv_error ntp_server2 'Enter another server than the first, or none'
  fi
  # During checks the expert view is off: a blank field there was not reported.
  if [[ -z ${orv[ntp_hours]} ]]; then
    orv_error ntp_hours 'Enter a number from 1 to 168, usually 12'
  fi
  if [[ ${orv[ntp_answer]} == True && ${orv[ntp_on]} == False ]]; then
    orv_error ntp_answer 'To serve the time, the device must set its own clock'
  fi
  # The page does not compare a dynamic list's value with its entries.
  if ! orv_one_of "${orv[time_zone]}" "${ZONES[@]%% *}"; then
    orv_error time_zone 'Choose a time zone from the list'
  fi
}

orv_read "${NAMES[@]}"
orv_stamp
orv_tick "${BOXES[@]}"
check_system
orv_end
if [[ $1 == --write ]]; then
  orv_store system "${NAMES[@]}" && saved 'Place and time changed'
fi
