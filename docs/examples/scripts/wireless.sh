#!/bin/bash
. "${BASH_SOURCE%/*}/lib.sh"
SHOWN=(enabled ssid channel power)
CHANNELS=(auto 1 6 11)

case $1 in
  --read)
    cfg=([enabled]=False [ssid]=larkspur [channel]=auto [power]=full)
    load wireless "${SHOWN[@]}" # the passphrase stays where it is
    show "${SHOWN[@]}"
    for i in "${!CHANNELS[@]}"; do
      echo "select_channels$i=\"${CHANNELS[i]} Channel ${CHANNELS[i]}\""
    done
    ;;
  --check)
    take "${SHOWN[@]}" passphrase
    if ! matches "${cfg[channel]}" "${CHANNELS[@]}"; then
      fail channel 'Choose a channel from the list'
    fi
    ;;
  --write)
    load wireless passphrase
    old=${cfg[passphrase]}
    take "${SHOWN[@]}" passphrase
    cfg[passphrase]=${cfg[passphrase]:-$old}
    store wireless "${SHOWN[@]}" passphrase
    echo 'u_passphrase=' # the page that comes next shall not carry it on
    echo 'c_after_save=Wireless devices are back in a few seconds.'
    ;;
esac
