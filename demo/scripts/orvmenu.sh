#!/bin/bash
# The start page: it only shows which device this is.
. "${BASH_SOURCE%/*}/lib.sh"

case $1 in
  --read)
    load name
    show host_name
    ;;
  *) exit 1 ;;
esac
