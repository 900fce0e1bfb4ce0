title Saved
read_script /bin/true
navbar_script navbar.sh
body
error $E$
if $V:saved_title$
heading $V:saved_title$
endif
if $V:saved_note$
text $V:saved_note$
else
text Your changes are saved. The device uses them from now on.
endif
if $V:after_save$
text $V:after_save$
endif
# This change, or an earlier one, goes back unless somebody keeps it.
if $V:saved_pending$
text $B$$V:saved_pending$$R$
if $V:saved_address$
text To keep it, open $B$$V:saved_address$$R$ and press Submit on the page
  "Keep the change?" there.
endif
fmenu
choice confirm Keep the change?
endif
# Each value ends in a line break.
if $V:saved_change0$
heading2 What changed
text $V:saved_change0$$V:saved_change1$$V:saved_change2$$V:saved_change3$
  $V:saved_change4$$V:saved_change5$$V:saved_change6$$V:saved_change7$
  $V:saved_change8$$V:saved_change9$$V:saved_change10$$V:saved_change11$
endif
