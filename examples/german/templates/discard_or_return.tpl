title Verlassen, ohne zu speichern?
read_script /bin/true
navbar_script navbar.sh --navbar
body
error $E$
text Sie haben Einstellungen geändert und nicht gespeichert. Return to changes führt
  zu ihnen zurück, Discard changes verwirft sie.
