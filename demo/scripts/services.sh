#!/bin/bash
# The device's services, and who is notified of events.
. "${BASH_SOURCE%/*}/lib.sh"

NAMES=(ssh_on ssh_port ssh_key_only mdns_on alert_on alert_mail log_level
  log_server)
BOXES=(ssh_on ssh_key_only mdns_on alert_on)

orv_load services
if [[ $1 == --read ]]; then
  orv_stamp
  orv_tick "${BOXES[@]}"
  orv_show "${NAMES[@]}"
  exit
fi

orv_read "${NAMES[@]}"
orv_stamp
orv_tick "${BOXES[@]}"
if [[ ${orv[alert_on]} == True && -z ${orv[alert_mail]} ]]; then
  orv_error alert_mail 'Enter a mail address, or switch the alerts off'
fi
# During checks the expert view is off: a blank field there was not reported.
if [[ -z ${orv[ssh_port]} ]]; then
  orv_error ssh_port 'Enter a number from 1 to 65535, usually 22'
fi
orv_end
if [[ $1 == --write ]]; then
  orv_store services "${NAMES[@]}" && saved 'Services changed' &&
    orv_act services
fi
