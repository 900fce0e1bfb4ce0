#!/bin/bash
# Values of the machine that this runs on, read from /proc and /sys.
. "${BASH_SOURCE%/*}/lib.sh"

MAX_INTERFACES=8

# size BYTES: sets REPLY to a readable size.
size()
{
  local n=$1 unit
  for unit in B kB MB GB; do
    if ((n < 10000)); then
      break
    fi
    n=$((n / 1000))
  done
  REPLY="$n $unit"
}

read_clock()
{
  export TZ=${orv[time_zone]}
  printf -v 'orv[st_time]' '%(%Y-%m-%d %H:%M:%S %Z)T' -1
}

read_uptime()
{
  local seconds
  IFS=. read -r seconds _ </proc/uptime
  printf -v 'orv[st_uptime]' '%d h %02d min' $((seconds / 3600 % 24)) \
    $((seconds / 60 % 60))
  if ((seconds >= 86400)); then
    orv[st_uptime]="$((seconds / 86400)) days, ${orv[st_uptime]}"
  fi
}

read_load()
{
  local now quarter
  read -r now _ quarter _ </proc/loadavg
  orv[st_load]="$now now, $quarter in 15 min"
}

read_memory()
{
  local key value total=0 free=0
  while read -r key value _; do
    case $key in
      MemTotal:) total=$value ;;
      MemAvailable:) free=$value && break ;;
    esac
  done </proc/meminfo
  orv[st_memory]="$((free / 1024)) MB free of $((total / 1024)) MB"
}

# The first default route; the file has its address as a number
# in the machine's byte order.
read_gateway()
{
  local interface target router
  while read -r interface target router _; do
    if [[ $target == 00000000 && $router =~ ^[0-9A-F]{8}$ ]]; then
      printf -v 'orv[st_gateway]' '%d.%d.%d.%d by %s' "0x${router:6:2}" \
        "0x${router:4:2}" "0x${router:2:2}" "0x${router:0:2}" "$interface"
      break
    fi
  done </proc/net/route
}

read_traffic()
{
  local name received sent state row=0
  while IFS=' :' read -r name received _ _ _ _ _ _ _ sent _; do
    if [[ $name == *[!a-zA-Z0-9_.@-]* || $received$sent == *[!0-9]* ]] ||
      ((received == 0 && sent == 0)); then
      continue
    fi
    read -r state <"/sys/class/net/$name/operstate"
    case $state in
      up | down) ;;
      *) state='' ;;
    esac
    size "$received" && received=$REPLY
    size "$sent" && sent=$REPLY
    printf '%s%d="%s"\n' if_name $row "$name" if_state $row "$state" \
      if_in $row "$received" if_out $row "$sent"
    row=$((row + 1))
    if ((row == MAX_INTERFACES)); then
      break
    fi
  done </proc/net/dev
}

orv_load name
orv_load system
orv_load reboot
# Values that the machine does not have stay blank, without an error message.
{
  read_clock
  read_uptime
  read_load
  read_memory
  read_gateway
  read -r 'orv[st_kernel]' </proc/sys/kernel/osrelease
  orv_show host_name place st_time st_uptime rb_last st_load st_memory \
    st_gateway st_kernel
  read_traffic
} 2>/dev/null
# The page shows fresh values, and a screen reader announces a new gateway.
printf '%s\n' live_seconds=5 live_tell=st_gateway
exit 0
