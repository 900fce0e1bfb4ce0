#!/bin/sh
printf '%s\n' 'network Network' 'ports Ports' 'services Services' \
  'status Status'
