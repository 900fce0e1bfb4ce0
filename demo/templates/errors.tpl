title Try errors
navbar_script navbar.sh $F$
help_mode
expert_mode
body
error $E$
text For authors of forms: choose an error and press Submit. Nothing
  here is ever stored.
help Your input is checked in three steps: by the checks of the template,
  which name a field's kind; the form's check script, which sees all fields
  together; and its write script, which may find the storage full.

heading2 Messages of the scripts
select er_kind
label What goes wrong
choice none Nothing
choice field A message beside a field
choice several Messages beside several fields
choice page A message for the whole page
choice column A message for a column of a table
choice cell A message for one cell of a table
choice hidden A message for a field of the expert view
choice fatal A message that makes the form unusable
choice check The check script fails
choice write The write script fails
choice full The write script finds the storage full
choice killed The whole page: the check script is killed
choice nonsense The whole page: the check script prints nonsense
choice slow Nothing, but it takes four seconds

heading2 Messages of the checks
text These fields have no messages of their own, so the checks use theirs.
field er_word 20
label A word
prompt Try nothing, two words, or a quotation mark
check word
field er_number 6
label A number
prompt Try 11, 1.5 or -1; 1 to 10 is right
check decimal 1 10
if $X$
field er_late 6
label Another number
prompt Try 0x10 or 1000; 1 to 100 is right
check number 1 100
# A message for a field that is not shown must still be visible.
else
if $E:er_late$
error Another number (press Expert to see it): $E:er_late$
endif
endif
table spares 2
field er_item 16
label Part
check nullok word
field er_count 6
label Count
check nullok decimal 1 99
