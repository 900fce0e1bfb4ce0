# shellcheck shell=sh
# Prints the way to a change that goes back unless somebody keeps it, as an entry
# of the bar of links, while there is such a change.  A navigation script reads
# it where that entry belongs: in front, but behind a line "--".
#
#   . "${0%/*}/orv_navbar.sh"
#
# It runs for every page, so it starts nothing and reads nothing.
set -- "${ORV_STATE:-${0%/*}/../state}" "$@"
if [ -d "$1/.commit/.pending" ] || # of a save that is about to be in place
  { [ -d "$1/.pending" ] && [ ! -e "$1/.commit/.settled" ]; }; then
  echo 'confirm Keep the change?'
fi
shift
