#!/bin/bash
# The device's log, the newest line first.
. "${BASH_SOURCE%/*}/lib.sh"

SHOWN=40

if [[ $1 == --read ]]; then
  log=$STATE/log
  if [[ ! -r $log ]]; then
    log=$SHIPPED/log
  fi
  mapfile -t lines <"$log"
  lines=("${lines[@]#event=}")
  # A line is its date, its time and what happened.  The page draws the marks:
  # emphasis and its end, the end of a line.
  for ((i = 0; i < SHOWN && i < ${#lines[@]}; i++)); do
    line=${lines[-1 - i]}
    # shellcheck disable=SC2016
    printf 'log%d="$B$%.19s$R$ %.180s$L$"\n' "$i" "$line" "${line:20}"
  done
  exit
fi

case $1 in
  --check)
    take log_empty
    end_check
    ;;
  --write)
    take log_empty
    tick log_empty
    if [[ ${cfg[log_empty]} == True ]] && replace log ''; then
      note 'Log emptied'
      echo 'saved_note="The log is empty now."'
    fi
    ;;
  *) exit 1 ;;
esac
