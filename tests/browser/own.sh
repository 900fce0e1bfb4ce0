#!/bin/bash
# A form of the browser tests that uses everything a page can change.
if [[ $1 == --read ]]; then
  printf '%s\n' own_passphrase= own_mode=no own_more= own_address= \
    own_name0=a own_pin0=1 own_name1=b own_pin1=2 wait_restart= wait_address=
  exit
fi
while IFS='="' read -r name _ value; do
  value=${value%\"}
  if [[ $name == new_own_address ]]; then
    printf '%s\n' "wait_address=$value" wait_restart=0.3
  fi
done
