title Nichts zu speichern
read_script /bin/true
navbar_script navbar.sh --navbar
body
error $E$
text Sie haben nichts geändert, also bleibt das Gerät, wie es ist.
