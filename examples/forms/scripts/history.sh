#!/bin/bash
# The last saves.  What users typed stands in them; orv_history writes it so that
# a page shows it and nothing of it becomes a part of the page.
. "${BASH_SOURCE%/*}/orv.bash"
[[ $1 != --read ]] || orv_history 40
