#!/bin/bash
# The last saves, which the store remembers; the page Log has the device's own.
. "${BASH_SOURCE%/*}/lib.sh"
[[ $1 != --read ]] || orv_history 40
