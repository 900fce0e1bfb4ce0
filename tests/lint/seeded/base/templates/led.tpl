title Lights
read_script led.sh --read
check_script led.sh --check
write_script led.sh --write
navbar_script navbar.sh
body
error $E$
select led_mode
label Lights
choice on Always
choice night Not at night
choice off Never
field led_level 4
label Brightness
rlabel percent
check decimal 1 100
