title Example device
read_script /bin/true
navbar_script navbar.sh
body
error $E$
text One small form for each feature.
heading2 Values
fmenu
choice fields Text, box and list
choice messages A check script
choice secret A secret
choice password A password, kept as a hash
choice login The password of these pages
choice iselect A list from a script
choice table A table
choice fixed_table A table of fixed rows
choice upgrade Values that an upgrade changes
heading2 Pages
fmenu
choice conditions Conditions
choice views Help and expert view
choice port/lan1 A form per thing, here LAN 1
choice ports A menu of them
choice status A status page
choice history Who changed what
heading2 Actions
fmenu
choice guard A change that goes back
choice service A service to restart
choice hostname An action of root's
choice language The language of these pages
choice reboot A restart
choice reset The settings as shipped
