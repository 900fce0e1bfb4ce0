#!/bin/bash
# Host name and address.
#
# With an automatic address the fields of the static one are not drawn.  They
# are reported empty then, so that nobody stores an address unseen by switching
# over; the last one is kept in the file and shown as a hint.
. "${BASH_SOURCE%/*}/lib.sh"

NAMES=(host_name static_ip ip_address gateway dns1 dns2)

read_values()
{
  load network "${NAMES[@]}"
  if [[ ${cfg[static_ip]} != yes ]]; then
    cfg[static_ip]=no
    cfg[last_ip_address]=${cfg[ip_address]}
    cfg[ip_address]=''
    cfg[gateway]=''
  fi
  show "${NAMES[@]}" last_ip_address
}

# Sets `network`, `broadcast` and `own`, or tells what is wrong.
check_address()
{
  local bits=${cfg[ip_address]#*/}
  if [[ -z ${cfg[ip_address]} ]]; then
    fail_page 'Now fill in the static address below, then press Submit again.'
    fail ip_address 'Enter the address, for example 192.168.1.20/24'
  elif ! ip_number "${cfg[ip_address]%%/*}"; then
    fail ip_address 'This is no address. Enter one such as 192.168.1.20/24'
  elif [[ ${cfg[ip_address]} != */* ]]; then
    fail ip_address 'Add the size of the network, for example /24'
  elif ! one_of "$bits" {1..30}; then
    fail ip_address 'The number after the / must be 1 to 30, usually 24'
  else
    own=$REPLY
    network=$((own & 0xffffffff << 32 - bits & 0xffffffff))
    broadcast=$((network | 0xffffffff >> bits))
    if ((own < 1 << 24 || own >> 24 == 127 || own >= 224 << 24)); then
      fail ip_address 'No device can have this address. Enter another one'
    elif ((own == network || own == broadcast)); then
      fail ip_address \
        'The first and the last address of a network are reserved'
    fi
  fi
}

check_gateway()
{
  if [[ -z ${cfg[gateway]} ]]; then
    return
  fi
  if ! ip_number "${cfg[gateway]}"; then
    fail gateway 'This is no address. Enter one such as 192.168.1.1'
  elif ((failed)); then
    return
  elif ((REPLY == own)); then
    fail gateway 'The gateway must be another device than this one'
  elif ((REPLY <= network || REPLY >= broadcast)); then
    fail gateway "The gateway must be in the same network as the address"
  fi
}

case $1 in
  --read) read_values ;;
  --check)
    take "${NAMES[@]}"
    if [[ ${cfg[static_ip]} == yes ]]; then
      check_address
      check_gateway
    fi
    if [[ -n ${cfg[dns2]} && -z ${cfg[dns1]} ]]; then
      fail dns1 'Fill in the first name server before the second'
    fi
    end_check
    ;;
  --write)
    load network "${NAMES[@]}"
    last_address=${cfg[ip_address]} last_gateway=${cfg[gateway]}
    take "${NAMES[@]}"
    if [[ ${cfg[static_ip]} != yes ]]; then
      cfg[ip_address]=$last_address cfg[gateway]=$last_gateway
    fi
    store network "${NAMES[@]}"
    ;;
  *) exit 1 ;;
esac
