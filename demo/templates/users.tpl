title Users
navbar_script navbar.sh $F$
help_mode
body
error $E$
text Who may use these pages. To add somebody, fill in the last row and press
  Submit. To remove somebody, tick Delete in the row and press Submit twice.
help $B$Role$R$: an administrator may change everything, an operator may restart
  the device and see the log, a viewer may only look.
  $L$$B$New password$R$: leave it blank to keep the one that is stored, which no
  page shows. A new user needs one, and so does a user with a new name.
  $L$$B$Locked out$R$ keeps the user, who cannot log in.

# The texts may be blank here: a row is deleted when both are blank; the check
# script requires what a row in use lacks.
table users 4
field us_name 16
label Name
check nullok regex ^[a-z][a-z0-9_]{1,19}$
check_msg us_name Use small letters, digits and _, at most 20; a letter first
select us_role
label Role
choice viewer Viewer
choice operator Operator
choice admin Administrator
field us_password 18
label New password
check nullok regex ^.{10,80}$
check_msg us_password Use 10 to 80 letters, digits and signs, without " $ \ or `
checkbox us_off
label Locked out
