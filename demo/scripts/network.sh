#!/bin/bash
# Host name, addresses and name servers.
#
# With an automatic address the fields of the static one are not drawn.  They
# are reported empty then, so that nobody stores an unseen address by switching
# to a static one; the last one is kept in the file and shown as a hint.
. "${BASH_SOURCE%/*}/lib.sh"

NAMES=(static_ip ip_address gateway ip6_mode ip6_address ip6_gateway dns1 dns2
  dns_search)

orv_load name
orv_load network
if [[ $1 == --read ]]; then
  orv_stamp
  orv[drawn_ip4]=yes orv[drawn_ip6]=yes
  if [[ ${orv[static_ip]} != yes ]]; then
    orv[static_ip]=no orv[drawn_ip4]=no
    orv[last_ip_address]=${orv[ip_address]}
    orv[ip_address]='' orv[gateway]=''
  fi
  if [[ ${orv[ip6_mode]} != yes ]]; then
    orv[drawn_ip6]=no
    orv[last_ip6_address]=${orv[ip6_address]}
    orv[ip6_address]='' orv[ip6_gateway]=''
  fi
  orv_show host_name "${NAMES[@]}" last_ip_address last_ip6_address drawn_ip4 \
    drawn_ip6
  orv_put wait_confirm '' # the page counts down if the browser runs scripts
  exit
fi

# Seconds within which a new address must be kept.
PATIENCE=120

asked=0

# ask KIND: the user could not fill in fields that were not drawn yet, so they
# are requested without an error.
ask()
{
  asked=1
  orv_put "drawn_$1" yes
}

check_ip4()
{
  if [[ -z ${orv[ip_address]} && ${orv[drawn_ip4]} == no ]]; then
    ask ip4
    return
  fi
  if ! check_network ip_address || [[ -z ${orv[gateway]} ]]; then
    return
  fi
  if ! ip_number "${orv[gateway]}"; then
    orv_error gateway 'This is not an address. Enter one such as 192.168.1.1'
  elif ((REPLY == own)); then
    orv_error gateway 'The gateway must be another device than this one'
  elif ! in_network "${orv[gateway]}"; then
    orv_error gateway 'The gateway must be in the same network as the address'
  fi
}

# ip6_digits ADDRESS: sets REPLY to the IPv6 address as 32 hexadecimal digits.
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
    # The two colons stand for at least one group of zeros.
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

# same_start A B BITS: whether two such addresses have the same first bits.
same_start()
{
  local whole=$(($3 / 4)) rest=$(($3 % 4))
  [[ ${1:0:whole} == "${2:0:whole}" ]] &&
    ((rest == 0 || (0x${1:whole:1} ^ 0x${2:whole:1}) >> 4 - rest == 0))
}

check_ip6()
{
  local value=${orv[ip6_address]} address bits
  bits=${value#*/}
  if [[ -z $value && ${orv[drawn_ip6]} == no ]]; then
    ask ip6
    return
  elif [[ -z $value ]]; then
    orv_error ip6_address 'Enter the address, for example 2001:db8::20/64'
    return
  elif ! ip6_digits "${value%%/*}"; then
    orv_error ip6_address \
      'This is not an address. Enter one such as 2001:db8::20/64'
    return
  elif [[ $value != */* ]] || ! orv_one_of "$bits" {8..127}; then
    orv_error ip6_address \
      'Add the size of the network, 8 to 127, for example /64'
    return
  fi
  address=$REPLY
  if [[ $address == ff* || $address =~ ^0{31} ]]; then
    orv_error ip6_address 'No device can have this address. Enter another one'
  elif [[ -z ${orv[ip6_gateway]} ]]; then
    return
  elif ! ip6_digits "${orv[ip6_gateway]}"; then
    orv_error ip6_gateway 'This is not an address. Enter one such as fe80::1'
  elif [[ $REPLY == "$address" ]]; then
    orv_error ip6_gateway 'The gateway must be another device than this one'
  elif [[ $REPLY != fe[89ab]* ]] && ! same_start "$REPLY" "$address" "$bits"
  then
    orv_error ip6_gateway \
      'The gateway must be in the same network, or begin with fe80:'
  fi
}

orv_read host_name "${NAMES[@]}" drawn_ip4 drawn_ip6
orv_stamp
if [[ ${orv[static_ip]} == yes ]]; then
  check_ip4
else
  orv[ip_address]=${orv_was[ip_address]} orv[gateway]=${orv_was[gateway]}
fi
if [[ ${orv[ip6_mode]} == yes ]]; then
  check_ip6
else
  orv[ip6_address]=${orv_was[ip6_address]}
  orv[ip6_gateway]=${orv_was[ip6_gateway]}
fi
if [[ -n ${orv[dns2]} && -z ${orv[dns1]} ]]; then
  orv_error dns1 'Fill in the first name server before the second'
fi
if ((asked)); then
  alone=$((!orv_failed))
  orv_error ask 'Now fill in the static address below, then press Submit again.'
  if ((alone)); then
    orv_msg ' ' # replaces the page's own message about an error
  fi
fi
orv_end
if [[ $1 != --write ]]; then
  exit
fi

# A wrong address must not lock anybody out: the change goes back unless
# somebody keeps it in time.  This demo has no address to change, so it passes
# no command.
moved=0
for name in static_ip ip_address ip6_mode ip6_address; do
  if [[ ${orv[$name]} != "${orv_was[$name]}" ]]; then
    moved=1
  fi
done
if ((moved)); then
  orv_guard $PATIENCE
fi
if orv_store name host_name -- network "${NAMES[@]}"; then
  saved 'Name and address changed'
  if ((moved)); then
    where='the address that your network gives it'
    if [[ ${orv[static_ip]} == yes ]]; then
      where=http://${orv[ip_address]%/*}/
    elif [[ ${orv[ip6_mode]} == yes ]]; then
      where=http://[${orv[ip6_address]%/*}]/
    fi
    orv_put u_saved_address "$where"
    orv_put wait_confirm $PATIENCE
  fi
fi
