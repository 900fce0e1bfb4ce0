#!/bin/bash
# Host name, addresses and name servers.
#
# With an automatic address the fields of the static one are not drawn.  They
# are reported empty then, so that nobody stores an address unseen by switching
# over; the last one is kept in the file and shown as a hint.
. "${BASH_SOURCE%/*}/lib.sh"

NAMES=(static_ip ip_address gateway ip6_mode ip6_address ip6_gateway dns1 dns2
  dns_search)

if [[ $1 == --read ]]; then
  load network
  load name
  if [[ ${cfg[static_ip]} != yes ]]; then
    cfg[static_ip]=no
    cfg[last_ip_address]=${cfg[ip_address]}
    cfg[ip_address]='' cfg[gateway]=''
  fi
  if [[ ${cfg[ip6_mode]} != yes ]]; then
    cfg[last_ip6_address]=${cfg[ip6_address]}
    cfg[ip6_address]='' cfg[ip6_gateway]=''
  fi
  show host_name "${NAMES[@]}" last_ip_address last_ip6_address
  exit
fi

check_ip4()
{
  if [[ -z ${cfg[ip_address]} ]]; then
    fail_page 'Now fill in the static address below, then press Submit again.'
  fi
  if ! check_network ip_address || [[ -z ${cfg[gateway]} ]]; then
    return
  fi
  if ! ip_number "${cfg[gateway]}"; then
    fail gateway 'This is no address. Enter one such as 192.168.1.1'
  elif ((REPLY == own)); then
    fail gateway 'The gateway must be another device than this one'
  elif ! in_network "${cfg[gateway]}"; then
    fail gateway 'The gateway must be in the same network as the address'
  fi
}

# ip6_digits ADDRESS: in REPLY, the IPv6 address as 32 hexadecimal digits.
ip6_digits()
{
  local text=${1,,} left right group groups=() more=()
  if [[ $text == *[!0-9a-f:]* || $text == *:::* || $text == *::*::* ||
    $text == *[!:]: ]]; then
    return 1
  fi
  left=${text%%::*}
  IFS=: read -ra groups <<<"$left"
  if [[ $text == *::* ]]; then
    right=${text#*::}
    IFS=: read -ra more <<<"$right"
    # The two colons stand for one group of zeros at least.
    groups+=(0)
    while ((${#groups[@]} + ${#more[@]} < 8)); do
      groups+=(0)
    done
  fi
  groups+=("${more[@]}")
  REPLY=''
  for group in "${groups[@]}"; do
    if [[ ! $group =~ ^[0-9a-f]{1,4}$ ]]; then
      return 1
    fi
    printf -v group '%04x' "0x$group"
    REPLY+=$group
  done
  ((${#REPLY} == 32))
}

# same_start A B BITS: whether two such addresses begin with the same bits.
same_start()
{
  local whole=$(($3 / 4)) rest=$(($3 % 4))
  [[ ${1:0:whole} == "${2:0:whole}" ]] &&
    ((rest == 0 || (0x${1:whole:1} ^ 0x${2:whole:1}) >> 4 - rest == 0))
}

check_ip6()
{
  local value=${cfg[ip6_address]} address bits
  bits=${value#*/}
  if [[ -z $value ]]; then
    fail_page 'Now fill in the static address below, then press Submit again.'
    fail ip6_address 'Enter the address, for example 2001:db8::20/64'
    return
  elif ! ip6_digits "${value%%/*}"; then
    fail ip6_address 'This is no address. Enter one such as 2001:db8::20/64'
    return
  elif [[ $value != */* ]] || ! one_of "$bits" {8..127}; then
    fail ip6_address 'Add the size of the network, 8 to 127, for example /64'
    return
  fi
  address=$REPLY
  if [[ $address == ff* || $address =~ ^0{31} ]]; then
    fail ip6_address 'No device can have this address. Enter another one'
  elif [[ -z ${cfg[ip6_gateway]} ]]; then
    return
  elif ! ip6_digits "${cfg[ip6_gateway]}"; then
    fail ip6_gateway 'This is no address. Enter one such as fe80::1'
  elif [[ $REPLY == "$address" ]]; then
    fail ip6_gateway 'The gateway must be another device than this one'
  elif [[ $REPLY != fe[89ab]* ]] && ! same_start "$REPLY" "$address" "$bits"
  then
    fail ip6_gateway \
      'The gateway must be in the same network, or begin with fe80:'
  fi
}

case $1 in
  --check)
    take "${NAMES[@]}"
    if [[ ${cfg[static_ip]} == yes ]]; then
      check_ip4
    fi
    if [[ ${cfg[ip6_mode]} == yes ]]; then
      check_ip6
    fi
    if [[ -n ${cfg[dns2]} && -z ${cfg[dns1]} ]]; then
      fail dns1 'Fill in the first name server before the second'
    fi
    end_check
    ;;
  --write)
    load network
    last_ip=${cfg[ip_address]} last_gateway=${cfg[gateway]}
    last_ip6=${cfg[ip6_address]} last_gateway6=${cfg[ip6_gateway]}
    take host_name "${NAMES[@]}"
    if [[ ${cfg[static_ip]} != yes ]]; then
      cfg[ip_address]=$last_ip cfg[gateway]=$last_gateway
    fi
    if [[ ${cfg[ip6_mode]} != yes ]]; then
      cfg[ip6_address]=$last_ip6 cfg[ip6_gateway]=$last_gateway6
    fi
    store name host_name && store network "${NAMES[@]}" &&
      note 'Name and address changed'
    ;;
  *) exit 1 ;;
esac
