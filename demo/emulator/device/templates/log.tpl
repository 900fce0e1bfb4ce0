title Log
navbar_script navbar.sh
body
error $E$
text What happened on this device; the newest first. It begins anew with each
  start.

# Each value ends in a line break.
if $V:log0$
text $V:log0$$V:log1$$V:log2$$V:log3$$V:log4$
  $V:log5$$V:log6$$V:log7$$V:log8$$V:log9$
  $V:log10$$V:log11$$V:log12$$V:log13$$V:log14$
  $V:log15$$V:log16$$V:log17$$V:log18$$V:log19$
  $V:log20$$V:log21$$V:log22$$V:log23$$V:log24$
  $V:log25$$V:log26$$V:log27$$V:log28$$V:log29$
  $V:log30$$V:log31$$V:log32$$V:log33$$V:log34$
  $V:log35$$V:log36$$V:log37$$V:log38$$V:log39$
else
text Nothing has happened so far.
endif
