#!/bin/bash
# Facts of the machine that this runs on, read from /proc.
. "${BASH_SOURCE%/*}/lib.sh"

MAX_INTERFACES=8

# size BYTES: in REPLY, for people.
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

read_uptime()
{
  local seconds
  IFS=. read -r seconds _ </proc/uptime
  printf -v 'cfg[st_uptime]' '%d days, %d h %02d min' \
    $((seconds / 86400)) $((seconds / 3600 % 24)) $((seconds / 60 % 60))
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
  cfg[st_memory]="$((free / 1024)) MB free of $((total / 1024)) MB"
}

read_traffic()
{
  local name counters row=0 received sent
  while IFS=' :' read -r name counters; do
    if [[ $name == *[!a-zA-Z0-9_.@-]* || $counters != [0-9]* ]]; then
      continue
    fi
    read -r received _ _ _ _ _ _ _ sent _ <<<"$counters"
    if ((received == 0 && sent == 0)); then
      continue
    fi
    size "$received" && received=$REPLY
    size "$sent" && sent=$REPLY
    printf '%s%d="%s"\n' if_name $row "$name" if_in $row "$received" \
      if_out $row "$sent"
    row=$((row + 1))
    if ((row == MAX_INTERFACES)); then
      break
    fi
  done </proc/net/dev
}

case $1 in
  --read)
    load network host_name
    printf -v 'cfg[st_time]' '%(%Y-%m-%d %H:%M:%S %Z)T' -1
    read_uptime
    read -r now _ quarter _ </proc/loadavg
    cfg[st_load]="$now now, $quarter in 15 min"
    read_memory
    read -r 'cfg[st_kernel]' </proc/sys/kernel/osrelease
    show host_name st_time st_uptime st_load st_memory st_kernel
    read_traffic
    ;;
  *) exit 1 ;;
esac
