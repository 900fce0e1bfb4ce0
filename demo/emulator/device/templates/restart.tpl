title Restart
navbar_script navbar.sh
body
error $E$
text A restart takes about a minute. If this page does not come back by itself,
  open it again after that. As shipped means that all settings are forgotten;
  the password of these pages stays.
select re_what
label What to do
choice restart Restart
choice shipped Put back the settings as shipped, and restart
checkbox re_sure
label Are you sure?
rlabel Yes, do it now
