title History
navbar_script navbar.sh $F$
help_mode
body
error $E$
text The last saves: who changed what, and when; newest first.
help A change that nobody kept in time is listed, too. The command
  $B$orvctl restore$R$ brings the settings before a save back.

# Each value ends in a line break.
if $V:history0$
text $V:history0$$V:history1$$V:history2$$V:history3$$V:history4$
  $V:history5$$V:history6$$V:history7$$V:history8$$V:history9$
  $V:history10$$V:history11$$V:history12$$V:history13$$V:history14$
  $V:history15$$V:history16$$V:history17$$V:history18$$V:history19$
  $V:history20$$V:history21$$V:history22$$V:history23$$V:history24$
  $V:history25$$V:history26$$V:history27$$V:history28$$V:history29$
  $V:history30$$V:history31$$V:history32$$V:history33$$V:history34$
  $V:history35$$V:history36$$V:history37$$V:history38$$V:history39$
else
text Nothing has been changed so far.
endif
