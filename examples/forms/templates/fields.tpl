title Text, box and list
navbar_script navbar.sh
body
error $E$
field name 30
label Name
prompt What others see, 1 to 30 characters
check regex ^.{1,30}$
check_msg name Enter a name of 1 to 30 characters
field lease 5
label Address lease
rlabel hours
check decimal 1 720
checkbox sharing
label Sharing
rlabel Others may use this device
select paper
label Paper
choice a4 A4
choice letter US Letter
