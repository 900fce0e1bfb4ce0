#!/bin/sh
# The navigation bar, the same on every page.
echo --
. "${0%/*}/orv_navbar.sh"
printf '%s\n' 'orvmenu Start' 'fields Fields' 'port/lan1 LAN 1' '- Examples'
