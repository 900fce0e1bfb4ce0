#!/bin/bash
read -r seconds _ </proc/uptime
printf '%s="%s"\n' name Larkspur minutes $((${seconds%.*} / 60)) \
  disk0 system free0 '12 MB' disk1 data free1 '130 MB'
