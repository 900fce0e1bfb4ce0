title Administrator
navbar_script navbar.sh
help_mode
body
error $E$
text How the administrator $B$root$R$ logs in over SSH.
field root_key 60
label Public key
prompt A line that begins with ssh-ed25519 or ecdsa-sha2-nistp256
check nullok regex ^(ssh-ed25519|ecdsa-sha2-nistp256) [A-Za-z0-9+/=]{60,160}( [A-Za-z0-9._@-]{0,50})?$
check_msg root_key This is no such key
help It is the line of the file whose name ends in .pub on your computer.
field root_password 20
label New password
prompt Blank keeps the one in use; the page Services says who may use it
check nullok regex ^.{10,80}$
check_msg root_password Use 10 to 80 letters, digits and signs, without " $$$ \ or `
