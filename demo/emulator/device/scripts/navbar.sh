#!/bin/sh
# The navigation bar, the same on every page.  The page puts "Configuration" in
# front; while a change waits to be kept, the link to it comes first.
. "${0%/*}/orv_navbar.sh"
printf '%s\n' 'network Network' 'services Services' 'time Time' 'log Log' \
  'restart Restart'
