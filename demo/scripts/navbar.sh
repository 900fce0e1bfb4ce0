#!/bin/bash
# The navigation bar of every form.  The page puts "Configuration" in front.
printf '%s\n' \
  'network Network' \
  'interfaces Ports' \
  'forwards Forwards' \
  'services Services' \
  'status Status'
