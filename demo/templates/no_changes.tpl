title Nothing to save
read_script empty.sh
navbar_script navbar.sh $F$
body
error $E$
text You changed nothing on the last page, so the device stays as it is.
