title Restart
navbar_script navbar.sh $F$
help_mode
body
error $E$
text A restart takes about a minute. Nobody reaches the Internet until then. If
  this page does not come back by itself, open it again after that.
help A restart changes no setting. $B$The settings as shipped$R$ forgets all that
  was ever changed here, users and log included.

select rb_what
label What to do
choice restart Restart
choice shipped Put back the settings as shipped
checkbox rb_sure
label Are you sure?
rlabel Yes, do it now
