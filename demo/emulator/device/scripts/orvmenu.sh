#!/bin/bash
# The start page only shows which device this is.
. "${BASH_SOURCE%/*}/orv.bash"
orv_load name
orv_show host_name
