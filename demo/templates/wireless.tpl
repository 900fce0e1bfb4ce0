title Wireless
navbar_script navbar.sh $F$
help_mode
expert_mode
body
error $E$
text The wireless network for phones and computers.

checkbox wl_on
label Wireless
rlabel On
field wl_name 32
label Network name
prompt What the list of networks shows, for example Larkspur
check nullok regex ^.{1,32}$
check_msg wl_name Use at most 32 letters, digits and signs, without " $ \ or `
if $X$
checkbox wl_hidden
label Hidden
rlabel Do not announce the name
help Hiding the name protects nothing: every device that knows it transmits it.
endif

heading2 Who may join
select wl_security
label Protection
choice wpa3 WPA3
choice wpa2 WPA2 and WPA3, for older devices, too
choice off None: everybody may join and listen
field wl_passphrase 32
label Passphrase
prompt $V:wl_hint$
check nullok regex ^.{8,63}$
check_msg wl_passphrase Use 8 to 63 letters, digits and signs, without " $ \ or `
help Four unrelated words are easy to remember and
  hard to guess.
checkbox wl_apart
label Guests
rlabel Keep the devices of this network apart from each other

heading2 Radio
select wl_band
label Band
choice both Both
choice 2 2.4 GHz, longer range
choice 5 5 GHz, faster
select wl_channel
label Channel
choice auto Automatic
choice 1 1 (2.4 GHz)
choice 6 6 (2.4 GHz)
choice 11 11 (2.4 GHz)
choice 36 36 (5 GHz)
choice 40 40 (5 GHz)
choice 44 44 (5 GHz)
choice 48 48 (5 GHz)
help Automatic uses the channel that the neighbours use least.
select wl_country
label Country
choice 00 Not chosen
choice DE Germany
choice FR France
choice GB United Kingdom
choice JP Japan
choice US United States
prompt The law of the country limits the transmit power
if $X$
field wl_power 4
label Transmit power
rlabel percent
prompt 1 to 100, usually 100
check decimal 1 100
check_msg wl_power Enter a number from 1 to 100
# A message for a field that is not shown must still be visible.
else
if $E:wl_power$
error Transmit power (press Expert to see it): $E:wl_power$
endif
endif
