title Settings as shipped
navbar_script navbar.sh
body
error $E$
text This forgets all that was ever set on this device.
checkbox reset_sure
label Are you sure?
rlabel Yes, forget all settings
checkbox reset_login
label Password
rlabel Forget it, too: the next start makes a new one and shows it on the console
