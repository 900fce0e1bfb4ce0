title Language
navbar_script navbar.sh
body
error $E$
text The pages change at once. Screen readers learn the new language after the
  device's next start.
select language
label Language of these pages
choice en English
choice de Deutsch
