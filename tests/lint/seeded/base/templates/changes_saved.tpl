title Saved
read_script /bin/true
navbar_script navbar.sh
body
error $E$
text The device uses your settings from now on. $V:after_save$
  $V:saved_pending$
# What orv_changes reports; each value ends its own line.
if $V:saved_change0$
heading2 What changed
text $V:saved_change0$$V:saved_change1$$V:saved_change2$$V:saved_change3$
  $V:saved_change4$$V:saved_change5$$V:saved_change6$$V:saved_change7$
  $V:saved_change8$$V:saved_change9$$V:saved_change10$$V:saved_change11$
endif
