title Saved
read_script empty.sh
navbar_script navbar.sh $F$
body
error $E$
# A write script may have more to say.
if $V:saved_note$
text $V:saved_note$
else
text Your changes are saved. The device uses them from now on.
endif
