#!/bin/bash
# The last saves.  They contain user input, which orv_history escapes, so that
# the page shows it as text.
. "${BASH_SOURCE%/*}/orv.bash"
[[ $1 != --read ]] || orv_history 40
