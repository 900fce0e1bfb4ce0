#!/bin/sh
# The navigation bar of the form $1: the forms of its group.  The page begins
# with "Configuration", which leads to all of them; five more fit.  While a
# change waits to be kept, the link to it comes first, and the last entry is
# dropped.  This runs for every page, so it starts no program.
. "${0%/*}/orv_navbar.sh"
case $1 in
  network | interfaces | wireless | dhcp)
    printf '%s\n' 'network Network' 'interfaces Ports' 'wireless Wireless' \
      'dhcp Address server' 'status Status'
    ;;
  port)
    # The ports, as in lib.sh.
    printf '%s\n' 'interfaces Ports' 'port/wan WAN' 'port/lan1 LAN 1' \
      'port/lan2 LAN 2' 'port/lan3 LAN 3'
    ;;
  firewall | forwards | services | users | login)
    printf '%s\n' 'firewall Firewall' 'forwards Port forwards' \
      'services Services' 'users Users' 'status Status'
    ;;
  system | log | history | reboot | errors | status)
    printf '%s\n' 'system Place and time' 'log Log' 'history History' \
      'reboot Restart' 'status Status'
    ;;
  *)
    printf '%s\n' 'network Network' 'firewall Firewall' 'services Services' \
      'system Place and time' 'status Status'
    ;;
esac
