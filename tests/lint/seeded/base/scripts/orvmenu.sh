#!/bin/bash
. "${BASH_SOURCE%/*}/orv.bash"

orv_load lan
exit 0
