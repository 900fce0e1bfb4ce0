#!/bin/bash
. "${BASH_SOURCE%/*}/orv.bash"

# restart: may take any time, since the page does not wait.
restart()
{
  sleep 1 # stands for: /etc/init.d/printing restart
  logger -t service "Printing: ${orv[service_on]}"
}

[[ $1 != --write ]] || orv_lock
orv_load service
if [[ $1 == --read ]]; then
  orv_stamp
  orv_show service_on
  exit
fi

orv_read service_on
orv_stamp
orv_tick service_on
orv_end
if [[ $1 == --write ]]; then
  orv_store service service_on && orv_background restart && orv_changes
fi
