title Language
navbar_script navbar.sh
body
error $E$
text The pages are in it at once. Screen readers are told which one it is from the
  device's next start on.
select language
label Language of these pages
choice en English
choice de Deutsch
