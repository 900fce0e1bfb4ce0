title Nothing to save
read_script empty.sh
navbar_script navbar.sh
body
error $E$
text You changed nothing, so the device stays as it is.
