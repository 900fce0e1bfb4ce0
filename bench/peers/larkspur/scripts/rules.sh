#!/bin/bash
# Rules between fields, and incomplete rows.  Each single field is checked by
# the page, and again when it is stored.
. "${BASH_SOURCE%/*}/orv.bash"
NAMES=(addressing ip_address prefix gateway dns1 dns2)
orv_read "${NAMES[@]}" fw_proto# fw_port# fw_to#

for name in "${NAMES[@]}"; do # every page sends them; they stay unchanged
  [[ ${orv[$name]+there} ]] || orv_fatal "The request lacks $name."
done

if [[ ${orv[addressing]} == yes ]]; then
  [[ ${orv[ip_address]} ]] || orv_error ip_address 'A static address is needed'
  [[ ${orv[prefix]} ]] || orv_error prefix 'Enter a number from 1 to 30'
  [[ ${orv[gateway]} != "${orv[ip_address]}" ]] ||
    orv_error gateway 'The gateway must be another device than this one'
fi
[[ -z ${orv[dns2]} || ${orv[dns1]} ]] ||
  orv_error dns1 'Fill in the first name server before the second'

orv_rows fw_port fw_to
declare -A seen=()
for row in "${rows[@]}"; do
  port=${orv[fw_port$row]} port=${port##*(0)} proto=${orv[fw_proto$row]}
  [[ $port ]] || orv_error fw_port 'Enter a port, 1 to 65535' "$row"
  [[ ${orv[fw_to$row]} ]] ||
    orv_error fw_to 'Enter an address such as 192.168.1.50' "$row"
  for other in ${proto/both/tcp udp}; do
    if [[ ${seen[$other.$port]} ]]; then
      orv_error fw_port "Row ${seen[$other.$port]} has this port already" "$row"
    fi
    seen[$other.$port]=$((row + 1))
  done
done
((${#rows[@]} <= 32)) || orv_msg 'The device keeps 32 forwards.'
orv_end
