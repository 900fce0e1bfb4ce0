title Gespeichert
read_script /bin/true
navbar_script navbar.sh --navbar
body
error $E$
# Ein Schreibskript kann after_save melden; noch tut es keines.
# orv-lint: off unknown-variable
if $V:saved_note$
text $V:saved_note$
else
text Das Gerät verwendet Ihre Einstellungen ab jetzt. $V:after_save$
endif
# Diese Änderung oder eine davor geht zurück, wenn niemand sie behält.
if $V:saved_pending$
text $V:saved_pending$
fmenu
choice confirm Änderung behalten?
endif
# Was orv_changes meldet; jeder Wert bringt sein Zeilenende mit.
if $V:saved_change0$
heading2 Was sich geändert hat
text $V:saved_change0$$V:saved_change1$$V:saved_change2$$V:saved_change3$
  $V:saved_change4$$V:saved_change5$$V:saved_change6$$V:saved_change7$
  $V:saved_change8$$V:saved_change9$$V:saved_change10$$V:saved_change11$
endif
