# Keeps a change that would otherwise go back.  Nothing is entered here: Submit
# keeps the change, and the page carries its token, so that no other change is
# kept in its place.
title Keep the change?
body
error $E$
if $V:confirm_token$
text This was changed by $V:confirm_who$, and it goes back by itself.
  $B$Press Submit to keep it.$R$
if $V:confirm_clock$
text If nobody kept it by $V:confirm_clock$ ($V:confirm_left$ seconds after this
  page was made), the old settings are back. If this page is hard to reach since
  the change, wait for that.
else
text The device does not use the change yet. Submit can keep it in a few
  seconds.
endif
if $V:confirm_change0$
heading2 What changed
text $V:confirm_change0$$V:confirm_change1$$V:confirm_change2$
  $V:confirm_change3$$V:confirm_change4$$V:confirm_change5$
  $V:confirm_change6$$V:confirm_change7$$V:confirm_change8$
  $V:confirm_change9$$V:confirm_change10$$V:confirm_change11$
endif
else
if $V:confirm_back$
text Nobody kept the last change in time: the old settings are back.
else
text No change waits to be kept.
endif
# Submit needs an input item.  This one is never drawn.
if $V:confirm_token$
checkbox confirm_box
label Keep the change
endif
endif
