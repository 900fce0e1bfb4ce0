title Saved
read_script /bin/true
navbar_script navbar.sh --navbar
body
error $E$
text Your changes are saved.
if $V:saved_change0$
text $V:saved_change0$$V:saved_change1$$V:saved_change2$$V:saved_change3$
  $V:saved_change4$$V:saved_change5$$V:saved_change6$$V:saved_change7$
  $V:saved_change8$$V:saved_change9$$V:saved_change10$$V:saved_change11$
endif
