title Saved
read_script /bin/true
navbar_script navbar.sh --navbar
body
error $E$
# A write script may report after_save; none does so yet.
# orv-lint: off unknown-variable
if $V:saved_note$
text $V:saved_note$
else
text The device uses your settings from now on. $V:after_save$
endif
# This change, or an earlier one, goes back unless somebody keeps it.
if $V:saved_pending$
text $V:saved_pending$
fmenu
choice confirm Keep the change?
endif
# Reported by orv_changes; each value ends in a line break.
if $V:saved_change0$
heading2 What changed
text $V:saved_change0$$V:saved_change1$$V:saved_change2$$V:saved_change3$
  $V:saved_change4$$V:saved_change5$$V:saved_change6$$V:saved_change7$
  $V:saved_change8$$V:saved_change9$$V:saved_change10$$V:saved_change11$
endif
