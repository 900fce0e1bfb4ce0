# shellcheck shell=bash
# Shared by the scripts of this device: its ports, its log, and functions for
# addresses.
#
# Each script ends in the same way: all values are checked, by the check script
# for the user and again by the write script, which holds the lock, since
# another save can happen between the two.
. "${BASH_SOURCE[0]%/*}/orv.bash"

# The device's ports, as printed on its case.
# shellcheck disable=SC2034  # read by the scripts of the ports
PORTS=(wan lan1 lan2 lan3)
# shellcheck disable=SC2034
declare -A PORT_LABEL=([wan]=WAN [lan1]='LAN 1' [lan2]='LAN 2' [lan3]='LAN 3')

LOG=${ORV_STATE%/*}/log # beside the settings, since it is not one of them

# The shell reads a script as it runs, so the rest costs a shown page nothing.
if [[ $1 == --read ]]; then
  return
elif [[ $1 == --write ]]; then
  orv_lock # before anything is loaded
fi

# The log's lines: when it has the first number, it is cut to the second.
LOG_MAX=200
LOG_KEPT=100

# saved TEXT: reports the changes on the confirmation page and in both logs.
saved()
{
  orv_log_changes
  note "${orv_lines[@]}"
  note_by_user "$1"
  orv_changes
}

# note_by_user TEXT: the same as note, with the user and the address.
note_by_user()
{
  local user=${REMOTE_USER:0:50} from=${REMOTE_ADDR//[!0-9a-fA-F.:]/}
  user=${user//[!A-Za-z0-9_.@-]/_}
  user=${user:+by $user}${from:+${user:+ }from $from}
  note "$1${user:+ ($user)}"
}

# Called in the background when a change has gone back.
orv_went_back()
{
  note 'Nobody kept the change: the old settings are back'
}

# note TEXT...: appends lines to the device's log.  A failure is ignored, so
# that the page works.
note()
{
  local when lines=() new=$LOG.new.$$
  (($#)) || return 0
  printf -v when 'event=%(%Y-%m-%d %H:%M:%S)T' -1
  printf '%s\n' "${@/#/$when }" >>"$LOG"
  mapfile -t lines <"$LOG"
  if ((${#lines[@]} >= LOG_MAX)); then
    printf '%s\n' "${lines[@]: -LOG_KEPT}" >"$new" && mv -fT -- "$new" "$LOG"
  fi
  return 0
} 2>/dev/null

is_port()
{
  [[ $1 =~ ^0{0,9}[1-9][0-9]{0,4}$ ]] && ((10#$1 <= 65535))
}

# ip_number ADDRESS: sets REPLY to the IPv4 address as a number.
ip_number()
{
  local byte='([0-9]|[1-9][0-9]|1[0-9][0-9]|2[0-4][0-9]|25[0-5])'
  if [[ ! $1 =~ ^$byte\.$byte\.$byte\.$byte$ ]]; then
    return 1
  fi
  REPLY=$((BASH_REMATCH[1] << 24 | BASH_REMATCH[2] << 16 |
    BASH_REMATCH[3] << 8 | BASH_REMATCH[4]))
}

# check_network NAME: checks the field NAME, an address with the size of its
# network, and sets the numbers `own`, `network` and `broadcast`.
check_network()
{
  local value=${orv[$1]} bits
  bits=${value#*/}
  if [[ -z $value ]]; then
    orv_error "$1" 'Enter the address, for example 192.168.1.20/24'
  elif ! ip_number "${value%%/*}"; then
    orv_error "$1" 'This is not an address. Enter one such as 192.168.1.20/24'
  elif [[ $value != */* ]]; then
    orv_error "$1" 'Add the size of the network, for example /24'
  elif ! orv_one_of "$bits" {1..30}; then
    orv_error "$1" 'The number after the / must be 1 to 30, usually 24'
  else
    own=$REPLY
    network=$((own & 0xffffffff << 32 - bits & 0xffffffff))
    broadcast=$((network | 0xffffffff >> bits))
    if ((own < 1 << 24 || own >> 24 == 127 || own >= 224 << 24)); then
      orv_error "$1" 'No device can have this address. Enter another one'
    elif ((own == network || own == broadcast)); then
      orv_error "$1" 'The first and the last address of a network are reserved'
    else
      return 0
    fi
  fi
  return 1
}

# in_network ADDRESS: whether a device of that network can have it.
in_network()
{
  ip_number "$1" && ((REPLY > network && REPLY < broadcast))
}
