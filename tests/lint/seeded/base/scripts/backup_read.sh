#!/bin/bash
. "${BASH_SOURCE%/*}/backup.inc"
orv_load "$FILE"
orv_stamp
orv_show "${VALUES[@]}"
exit 0
