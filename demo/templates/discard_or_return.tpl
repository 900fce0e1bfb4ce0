# Home was pressed while a form had unsaved changes.
title Leave without saving?
read_script empty.sh
navbar_script navbar.sh $F$
body
error $E$
text You changed something on the last page and have not saved it.
  $L$$B$Return to changes$R$ shows that page again with all you typed.
  $L$$B$Discard changes$R$ drops what you typed. The device stays as it is.
