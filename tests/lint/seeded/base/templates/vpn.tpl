title VPN
navbar_script navbar.sh
body
error $E$
iselect vpn_server servers
label Server
field vpn_user 20
label User
check word
field vpn_psk 40
label Key
prompt Blank keeps the one in use
check nullok regex ^.{16,64}$
checkbox vpn_on
label Connect
