title Leave without saving?
read_script /bin/true
navbar_script navbar.sh --navbar
body
error $E$
text You changed settings and did not save them.
