#!/bin/bash
. "${0%/*}/orv_navbar.sh"
printf '%s\n' 'lan Network' 'wifi Wireless' '- Gateway'
