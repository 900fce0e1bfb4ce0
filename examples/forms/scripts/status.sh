#!/bin/bash
. "${BASH_SOURCE%/*}/orv.bash"

read -r seconds _ </proc/uptime
orv_put name "$SYSTEM_TYPE"
orv_put running "$((${seconds%.*} / 60)) minutes"
orv_put live_seconds 5 # new values every 5 seconds
i=0
while read -r _ size _ free _ folder; do
  if [[ $size == [0-9]* && $free == [0-9]* ]]; then
    orv_put "disk$i" "$folder"
    orv_put "free$i" "$((free / 1024)) MB"
    i=$((i + 1))
  fi
done < <(df -kP / /tmp 2>/dev/null)
exit 0
