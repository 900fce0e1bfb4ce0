#!/bin/bash
# Whoever opens the start page confirms a new address: orv_load does it.
. "${BASH_SOURCE%/*}/orv.bash"

orv_load guard
exit 0
