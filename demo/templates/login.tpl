title Password
navbar_script navbar.sh $F$
help_mode
body
error $E$
if $V:login_user$
text The password of $B$$V:login_user$$R$ for these pages.
help Anyone who knows the password can change everything. Choose one that you
  use nowhere else. Nobody can tell you the one in use: who has lost it puts back
  the settings as shipped at the device.
field old_password 40
label Password in use
check nullok regex ^.{1,80}$
field new_password 40
label New password
prompt 10 to 80 letters, digits and signs
check nullok regex ^.{10,80}$
check_msg new_password Enter 10 to 80 letters, digits and signs, without " $$$ \ or `
field again_password 40
label New password again
check nullok regex ^.{1,80}$
else
text This device has no login.
endif
