#!/bin/sh
# The bar of links, the same on every page.
printf '%s\n' -- 'orvmenu Start' 'clock Clock'
