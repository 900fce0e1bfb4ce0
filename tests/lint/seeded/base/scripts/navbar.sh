#!/bin/bash
printf '%s\n' 'lan Network' 'wifi Wireless' '- Gateway'
