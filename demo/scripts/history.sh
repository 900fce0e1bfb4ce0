#!/bin/bash
# The last saves, from the store; the page Log shows the device's own log.
. "${BASH_SOURCE%/*}/lib.sh"
[[ $1 != --read ]] || orv_history 40
