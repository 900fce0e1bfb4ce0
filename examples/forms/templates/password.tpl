title Administrator
navbar_script navbar.sh
body
error $E$
field admin_password 40
label New password
prompt Blank keeps the one in use
check nullok regex ^.{10,80}$
check_msg admin_password Enter 10 to 80 characters
