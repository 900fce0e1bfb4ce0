title Port $S$
read_script port.sh --read "$S$"
check_script port.sh --check "$S$"
write_script port.sh --write "$S$"
navbar_script navbar.sh
body
error $E$
ifnot $E:fatal$
select speed
label Speed
choice auto Automatic
choice 100 100 Mbit/s
field note 40
label Note
check nullok regex ^.{1,60}$
endif
