title Gateway
navbar_script navbar.sh
body
error $E$
text This is a $N:SYSTEM_TYPE$.
fmenu
choice lan Network
choice routes Routes
choice wifi Wireless
choice port/lan1 Port 1
choice port/lan2 Port 2
choice reboot Restart
choice vlans VLANs
choice vpn VPN
choice led Lights
choice relay/left Left relay
choice phones Phones
choice backup Backup
