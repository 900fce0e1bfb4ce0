title Nothing to save
read_script /bin/true
navbar_script navbar.sh --navbar
body
error $E$
text You changed nothing, so the device stays as it is.
