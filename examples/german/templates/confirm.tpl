# Behält eine Änderung, die sonst von selbst zurückgeht.  Hier wird nichts
# eingegeben: das Submit dieser Seite behält sie, und zwar die, die sie zeigt.
title Änderung behalten?
body
error $E$
if $V:confirm_token$
text Dies hat $V:confirm_who$ geändert, und es geht von selbst zurück.
  $B$Submit behält es.$R$
if $V:confirm_clock$
text Hat es bis $V:confirm_clock$ niemand behalten ($V:confirm_left$ Sekunden,
  nachdem diese Seite entstand), gelten wieder die alten Einstellungen. Ist diese
  Seite seit der Änderung schwer zu erreichen, warten Sie das ab.
else
text Das Gerät verwendet die Änderung noch nicht. In einigen Sekunden kann Submit
  sie behalten.
endif
if $V:confirm_change0$
heading2 Was sich geändert hat
text $V:confirm_change0$$V:confirm_change1$$V:confirm_change2$
  $V:confirm_change3$$V:confirm_change4$$V:confirm_change5$
  $V:confirm_change6$$V:confirm_change7$$V:confirm_change8$
  $V:confirm_change9$$V:confirm_change10$$V:confirm_change11$
endif
else
if $V:confirm_back$
text Niemand hat die letzte Änderung rechtzeitig behalten: es gelten wieder die
  alten Einstellungen.
else
text Keine Änderung wartet darauf, behalten zu werden.
endif
# Eine Seite kann gesendet werden, wenn sie etwas einzugeben hat. Dies wird nie
# gezeigt.
if $V:confirm_token$
checkbox confirm_box
label Änderung behalten
endif
endif
