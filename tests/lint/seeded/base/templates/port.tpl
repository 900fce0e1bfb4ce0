title Port $S$
read_script port.sh --read $F$ "$S$"
check_script port.sh --check $F$ "$S$"
write_script port.sh --write $F$ "$S$"
navbar_script navbar.sh
body
error $E$
ifnot $E:fatal$
checkbox port_on
label In use
field port_note 30
label Note
check nullok text
endif
