#!/bin/bash
# Reads and writes without the library, one file per port.
dir=${BASH_SOURCE%/*}/../state

case $3 in
  lan1 | lan2) ;;
  *)
    echo 'error_fatal=yes'
    echo 'error_msg=There is no such port.'
    exit 0
    ;;
esac

if [[ $1 == --read ]]; then
  port_on=False port_note=''
  if [[ -r $dir/$3 ]]; then
    { IFS= read -r port_on && IFS= read -r port_note; } <"$dir/$3"
  fi
  printf '%s\n' "port_on=$port_on" "port_note=\"$port_note\""
  exit 0
fi

port_on='' port_note=''
while IFS= read -r line; do
  value=${line#*=\"}
  value=${value%\"}
  case $line in
    new_port_on=*) port_on=$value ;;
    new_port_note=*) port_note=$value ;;
  esac
done
case $port_on in
  True | False) ;;
  *) echo 'error_port_on=Tick the box or leave it' ;;
esac
if [[ $1 == --write ]]; then
  printf '%s\n' "$port_on" "$port_note" >"$dir/$3.new" &&
    mv -- "$dir/$3.new" "$dir/$3" ||
    echo 'error_msg=The port could not be saved.'
fi
