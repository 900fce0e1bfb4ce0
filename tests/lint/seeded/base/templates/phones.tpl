title Phones
navbar_script navbar.sh
body
error $E$
table phones 2
field phone_name 20
label Name
check nullok regex ^.{1,30}$
field phone_number 20
label Number
check nullok regex ^[0-9 ]{1,20}$
