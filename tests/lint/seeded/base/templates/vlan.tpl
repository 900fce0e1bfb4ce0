title VLAN $S$
read_script vlan.sh --read "$S$"
check_script vlan.sh --check "$S$"
write_script vlan.sh --write "$S$"
navbar_script navbar.sh
body
error $E$
ifnot $E:fatal$
field vlan_id 5
label Number
check decimal 1 4094
field vlan_note 30
label Note
check nullok regex ^.{1,40}$
checkbox vlan_on
label Use
endif
