#!/bin/bash
# The device's log, the newest line first.
. "${BASH_SOURCE%/*}/lib.sh"

SHOWN=40

if [[ $1 == --read ]]; then
  log=$LOG
  if [[ ! -r $log ]]; then
    log=$ORV_DEFAULTS/log
  fi
  mapfile -t lines <"$log"
  lines=("${lines[@]#event=}")
  # A line has a date, a time and an event.  The codes are the page's: emphasis,
  # its end, the end of a line.
  for ((i = 0; i < SHOWN && i < ${#lines[@]}; i++)); do
    line=${lines[-1 - i]//\$/}
    orv_put "log$i" "\$B\$${line:0:19}\$R\$ ${line:20:190}\$L\$"
  done
  exit 0
fi

orv_read log_empty
orv_tick log_empty
if [[ $1 == --write && ${orv[log_empty]} == True ]] && ((!orv_failed)); then
  if : >"$LOG"; then
    note_by_user 'Log emptied'
    orv_put u_saved_note 'The log is empty now.'
  else
    orv_msg 'The log could not be emptied. Is the storage full?'
  fi 2>/dev/null
fi
