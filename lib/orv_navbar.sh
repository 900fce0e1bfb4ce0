# shellcheck shell=sh
# While a change is pending that goes back unless somebody keeps it, prints the
# entry of the navigation bar that leads to it.  A navigation script reads this
# file where the entry belongs: first, but after a line "--".
#
#   . "${0%/*}/orv_navbar.sh"
#
# It runs for every page, so it starts no program and reads no file.
set -- "${ORV_STATE:-${0%/*}/../state}" "$@"
if [ -d "$1/.commit/.pending" ] || # of a save that is being moved into place
  { [ -d "$1/.pending" ] && [ ! -e "$1/.commit/.settled" ]; }; then
  echo 'confirm Keep the change?'
fi
shift
