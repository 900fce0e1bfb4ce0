title Uhr
body
error $E$
field server 30
label Zeitserver
prompt Ein Rechnername oder eine Adresse. Submit speichert.
check ipaddr ipv4 ipv6 hostname
check_msg server Das ist weder ein Rechnername noch eine Adresse
