title Settings as shipped
navbar_script navbar.sh
body
error $E$
text This deletes all settings of this device.
checkbox reset_sure
label Are you sure?
rlabel Yes, delete all settings
checkbox reset_login
label Password
rlabel Reset it, too: the next start shows a new one on the console
