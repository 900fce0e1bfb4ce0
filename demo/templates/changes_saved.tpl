title Saved
read_script empty.sh
navbar_script navbar.sh $F$
body
error $E$
# A write script may have more to say.
if $V:saved_title$
heading $V:saved_title$
endif
if $V:saved_note$
text $V:saved_note$
else
text Your changes are saved. The device uses them from now on.
endif
# A change of address goes back unless a page is opened in time.
if $V:saved_address$
text $B$Now open a page of this device within $V:saved_seconds$ seconds$R$, at
  $V:saved_address$. Otherwise it goes back to the old settings, so that a wrong
  address locks nobody out. (This demo stays where it is: Continue will do.)
endif
# Each value ends its own line.
if $V:saved_change0$
heading2 What changed
text $V:saved_change0$$V:saved_change1$$V:saved_change2$$V:saved_change3$
  $V:saved_change4$$V:saved_change5$$V:saved_change6$$V:saved_change7$
  $V:saved_change8$$V:saved_change9$$V:saved_change10$$V:saved_change11$
endif
