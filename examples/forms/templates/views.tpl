title Radio
navbar_script navbar.sh
help_mode
expert_mode
body
error $E$
help $B$Country$R$: the law says which channels a radio may use.
select country
label Country
choice de Germany
choice us United States
if $X$
field power 4
label Transmit power
rlabel percent
check decimal 1 100
else
error $E:power$
endif
