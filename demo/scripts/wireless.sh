#!/bin/bash
# The wireless network.
#
# The passphrase has a file of its own, which nothing reads but the radio and
# nothing here reports: a page that shows it would show it to whoever looks over
# a shoulder or into a browser's cache.  It stands there as it was typed, since
# the radio's program must be able to read it; the file is its owner's alone, as
# every file that lib.sh writes.
. "${BASH_SOURCE%/*}/lib.sh"

NAMES=(wl_on wl_name wl_hidden wl_security wl_band wl_channel wl_country
  wl_power wl_apart)
BOXES=(wl_on wl_hidden wl_apart)
KEY=wireless.key

if [[ $1 == --read ]]; then
  load wireless
  tick "${BOXES[@]}"
  cfg[wl_key_hint]='8 to 63 characters'
  if [[ -s $STATE/$KEY ]]; then
    cfg[wl_key_hint]='One is stored and not shown; leave this blank to keep it'
  fi
  show "${NAMES[@]}" wl_key_hint
  exit
fi

check_wireless()
{
  if [[ ${cfg[wl_on]} == True && -z ${cfg[wl_name]} ]]; then
    fail wl_name 'Enter the name that phones and computers will show'
  fi
  if [[ ${cfg[wl_on]} == True && ${cfg[wl_security]} != off &&
    -z ${cfg[wl_key]} && ! -s $STATE/$KEY ]]; then
    fail wl_key 'No passphrase is stored yet. Enter one of 8 to 63 characters'
  fi
  # What belongs together is told at both fields: either may be the wrong one.
  case ${cfg[wl_band]}/${cfg[wl_channel]} in
    */auto | 2/1 | 2/6 | 2/11 | 5/36 | 5/40 | 5/44 | 5/48) ;;
    both/*) fail wl_channel 'With both bands only Automatic is possible' ;;
    *)
      fail wl_band 'This band does not have the channel below'
      fail wl_channel 'Choose a channel of the band, or Automatic'
      ;;
  esac
  if [[ -z ${cfg[wl_power]} ]]; then
    fail wl_power 'Enter a number from 1 to 100'
  fi
}

case $1 in
  --check)
    take "${NAMES[@]}" wl_key
    tick "${BOXES[@]}"
    check_wireless
    end_check
    ;;
  --write)
    load wireless
    take "${NAMES[@]}" wl_key
    tick "${BOXES[@]}"
    # Blank means unchanged.
    if [[ ${cfg[wl_key]} ]]; then
      store $KEY wl_key || exit
      # The page that confirms shall not carry it on.
      echo 'u_wl_key='
    fi
    store wireless "${NAMES[@]}" && note 'Wireless changed'
    ;;
  *) exit 1 ;;
esac
