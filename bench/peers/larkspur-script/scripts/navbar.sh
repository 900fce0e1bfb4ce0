#!/bin/sh
printf '%s\n' 'gateway Gateway' 'status Status' 'users Users' 'log Log' \
  'system System'
