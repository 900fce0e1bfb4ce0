#!/bin/bash
# The wireless network.
#
# The passphrase has its own file, which only the radio's program reads.  It is
# never reported: a page that shows it would show it to anybody who looks over a
# shoulder or into a browser's cache.  It is stored as typed, since the radio's
# program must be able to use it; only its owner can read the file, like every
# settings file.
. "${BASH_SOURCE%/*}/lib.sh"

NAMES=(wl_on wl_name wl_hidden wl_security wl_band wl_channel wl_country
  wl_power wl_apart)
BOXES=(wl_on wl_hidden wl_apart)
KEY=wireless.key

orv_load wireless
orv_load $KEY
if [[ $1 == --read ]]; then
  orv_stamp
  orv_tick "${BOXES[@]}"
  orv[wl_hint]='8 to 63 characters'
  if [[ ${orv[wl_passphrase]} ]]; then
    orv[wl_hint]='One is stored and not shown; leave this blank to keep it'
  fi
  orv_show "${NAMES[@]}" wl_hint
  orv_show_secrets wl_passphrase
  exit
fi

check_wireless()
{
  if [[ ${orv[wl_on]} == True && -z ${orv[wl_name]} ]]; then
    orv_error wl_name 'Enter the name that phones and computers will show'
  fi
  if [[ ${orv[wl_on]} == True && ${orv[wl_security]} != off &&
    -z ${orv[wl_passphrase]} ]]; then
    orv_error wl_passphrase \
      'No passphrase is stored yet. Enter one of 8 to 63 characters'
  fi
  # An inconsistency is reported at both fields: either may be the wrong one.
  case ${orv[wl_band]}/${orv[wl_channel]} in
    */auto | 2/1 | 2/6 | 2/11 | 5/36 | 5/40 | 5/44 | 5/48) ;;
    both/*) orv_error wl_channel 'With both bands only Automatic is possible' ;;
    *)
      orv_error wl_band 'This band does not have the channel below'
      orv_error wl_channel 'Choose a channel of the band, or Automatic'
      ;;
  esac
  if [[ -z ${orv[wl_power]} ]]; then
    orv_error wl_power 'Enter a number from 1 to 100'
  fi
}

orv_read "${NAMES[@]}" wl_passphrase
orv_stamp
orv_tick "${BOXES[@]}"
orv_secret wl_passphrase
check_wireless
orv_end
if [[ $1 == --write ]]; then
  orv_store $KEY wl_passphrase -- wireless "${NAMES[@]}" &&
    saved 'Wireless changed'
fi
