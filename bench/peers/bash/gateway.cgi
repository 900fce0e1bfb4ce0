#!/bin/bash
# The form of the gateway's settings, stored as lines NAME=VALUE.  Only the last
# step of a save starts a program, and nothing else forks.
set -f
shopt -u patsub_replacement 2>/dev/null # "&" in a replacement means itself
export PATH=/usr/bin:/bin LC_ALL=C
umask 077

STORE=../state/gateway
MAX_BODY=65536
MAX_ROWS=32

CHOOSE='Choose one of the entries'
NUMBER='Enter a number from 1 to 30'

FIELDS=(host_name location contact addressing ip_address prefix gateway dns1
  dns2 ntp log_level ssh)
COLUMNS=(fw_proto fw_port fw_to fw_note)
declare -A LABELS=([host_name]='Device name' [location]=Location
  [contact]=Contact [addressing]=Addressing [ip_address]=Address
  [prefix]='Network size' [gateway]=Gateway [dns1]='Name server'
  [dns2]='Second name server' [ntp]='Time server' [log_level]=Log
  [ssh]='Remote login' [fw_proto]=Protocol [fw_port]='Outside port'
  [fw_to]=Device [fw_note]=Note)
declare -A SIZES=([host_name]=24 [location]=30 [contact]=30 [ip_address]=15
  [prefix]=2 [gateway]=15 [dns1]=15 [dns2]=15 [ntp]=30 [fw_port]=5 [fw_to]=15
  [fw_note]=20)
declare -A CHOICES=([addressing]='no Automatic yes Static'
  [log_level]='error Errors notice Events debug Everything'
  [fw_proto]='tcp TCP udp UDP both Both')
declare -A HINTS=([host_name]='For example gateway-1' [contact]='A mail address'
  [ip_address]='For example 192.168.1.20' [prefix]='1 to 30, usually 24'
  [ntp]='A host name or an address')
# The check of each value; a name with "?" may be blank.
declare -A CHECKS=([host_name]=is_label [location?]='is_text 60'
  [contact?]=is_mail [addressing]='is_one_of no yes' [ip_address]=is_ip
  [prefix]='is_number 30' [gateway?]=is_ip [dns1?]=is_ip [dns2?]=is_ip
  [ntp?]=is_host [log_level]='is_one_of error notice debug'
  [ssh]='is_one_of True False' [fw_proto]='is_one_of tcp udp both'
  [fw_port]='is_number 65535' [fw_to]=is_ip [fw_note?]='is_text 40')
declare -A MESSAGES=([addressing]=$CHOOSE [log_level]=$CHOOSE [fw_proto]=$CHOOSE
  [host_name]='Use letters, digits and hyphens, 63 at most'
  [location]='Use 60 characters at most' [contact]='Enter a mail address'
  [ip_address]='Enter an address such as 192.168.1.20' [prefix]=$NUMBER
  [gateway]='Enter an address such as 192.168.1.1'
  [dns1]='Enter an address such as 9.9.9.9'
  [dns2]='Enter an address such as 9.9.9.9'
  [ntp]='Enter a host name or an address' [fw_port]='Enter a port, 1 to 65535'
  [fw_to]='Enter an address such as 192.168.1.50'
  [fw_note]='Use 40 characters at most')

declare -A value=() got=() errors=()
rows=0 page='' note=''

esc() { # TEXT: sets REPLY to it as HTML
  REPLY=$1
  if [[ $1 == *[\&\<\>\"\']* ]]; then
    REPLY=${REPLY//&/&amp;} REPLY=${REPLY//</&lt;} REPLY=${REPLY//>/&gt;}
    REPLY=${REPLY//\"/&quot;} REPLY=${REPLY//\'/&#39;}
  fi
}

# A control and its message; ARIA names it where no label does.
control() { # NAME KEY [ARIA]
  local name=$1 key=$2 more=" id=\"$2\"${3:+ aria-label=\"$3\"}" i words
  if [[ ${errors[$key]} ]]; then
    more+=" aria-invalid=\"true\" aria-describedby=\"$key-error\""
  fi
  if [[ ${CHOICES[$name]} ]]; then
    # shellcheck disable=SC2206  # words
    words=(${CHOICES[$name]})
    page+="<select name=\"$key\"$more>"$'\n'
    for ((i = 0; i < ${#words[@]}; i += 2)); do
      page+="<option value=\"${words[i]}\""
      [[ ${words[i]} != "${value[$key]}" ]] || page+=' selected'
      page+=">${words[i + 1]}</option>"$'\n'
    done
    page+='</select>'
  elif [[ $name == ssh ]]; then
    [[ ${value[ssh]} != True ]] || more+=' checked'
    page+="<input type=\"checkbox\" name=\"ssh\" value=\"True\"$more>"
  else
    esc "${value[$key]}"
    page+="<input name=\"$key\" value=\"$REPLY\" size=\"${SIZES[$name]}\"$more>"
  fi
  page+=${HINTS[$name]:+" <small>${HINTS[$name]}</small>"}
  if [[ ${errors[$key]} ]]; then
    esc "${errors[$key]}"
    page+="<br><em id=\"$key-error\">$REPLY</em>"
  fi
}

is_drawn() { # NAME: fields of a static address only with such an address
  [[ ${value[addressing]} == yes || $1 != @(ip_address|prefix|gateway) ]]
}

form() {
  local name i
  page=${note:+"<p role=\"status\">$note</p>"$'\n'}
  page+='<form method="post" action="gateway.cgi">'$'\n<table>\n'
  for name in "${FIELDS[@]}"; do
    is_drawn "$name" || continue
    page+="<tr><th><label for=\"$name\">${LABELS[$name]}</label></th><td>"
    control "$name" "$name"
    page+=$'</td></tr>\n'
  done
  page+=$'</table>\n<h2>Port forwards</h2>\n<table>\n<tr>'
  for name in "${COLUMNS[@]}"; do page+="<th>${LABELS[$name]}</th>"; done
  page+=$'</tr>\n'
  for ((i = 0; i <= rows; i++)); do
    page+='<tr>'
    for name in "${COLUMNS[@]}"; do
      page+='<td>'
      control "$name" "$name$i" "${LABELS[$name]}, row $((i + 1))"
      page+='</td>'
    done
    page+=$'</tr>\n'
  done
  page+=$'</table>\n<p><input type="submit" value="Submit"></p>\n</form>\n'
}

send() { # STATUS
  local links='' name
  for name in Gateway Status Users Log System; do
    links+="<li><a href=\"${name,}.cgi\">$name</a></li>"$'\n'
  done
  local policy="default-src 'none'; style-src 'self'; form-action 'self'"
  policy+="; frame-ancestors 'self'; base-uri 'none'"
  printf '%s\r\n' "Status: $1" 'Content-Type: text/html; charset=utf-8' \
    'Cache-Control: private, no-cache' 'X-Content-Type-Options: nosniff' \
    'X-Frame-Options: SAMEORIGIN' "Content-Security-Policy: $policy" ''
  printf '%s' '<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width">
<title>Gateway</title>
<link rel="stylesheet" href="/style.css">
</head>
<body>
<nav><ul>
' "$links" '</ul></nav>
<main>
<h1>Gateway</h1>
' "$page" '</main>
</body>
</html>
'
}

refuse() { # STATUS TEXT
  page="<p>$2</p>"$'\n'
  send "$1"
  exit
}

from_here() {
  if [[ $HTTP_SEC_FETCH_SITE ]]; then
    [[ $HTTP_SEC_FETCH_SITE == @(same-origin|none) ]]
  else
    [[ -z $HTTP_ORIGIN || $HTTP_ORIGIN == http?(s)://"$HTTP_HOST" ]]
  fi
}

load() {
  local lines line
  [[ -r $STORE ]] || return
  mapfile -t lines <"$STORE"
  for line in "${lines[@]}"; do value[${line%%=*}]=${line#*=}; done
  rows=${value[rows]:-0}
}

decode() { # TEXT: sets REPLY, without blanks at both ends
  REPLY=${1//+/ }
  if [[ $REPLY == *%* ]]; then
    REPLY=${REPLY//\\/\\\\}
    printf -v REPLY %b "${REPLY//%/\\x}"
  fi
  REPLY=${REPLY#"${REPLY%%[![:space:]]*}"}
  REPLY=${REPLY%"${REPLY##*[![:space:]]}"}
}

# Replaces the stored values by the posted ones; rows in use move together.
take() {
  local body pair name i IFS='&'
  IFS= read -r -d '' -N "$CONTENT_LENGTH" body
  [[ ! $body =~ %([^0-9A-Fa-f]|.[^0-9A-Fa-f]|.?$) ]] ||
    refuse '400 Bad Request' 'The request makes no sense.'
  for pair in $body; do
    name=${pair%%=*}
    [[ ${#name} -le 20 && $name == [a-z]* && $name != *[!a-z0-9_]* ]] ||
      continue
    decode "${pair#*=}"
    got[$name]=$REPLY
  done
  value[addressing]=${got[addressing]}
  for name in "${FIELDS[@]}"; do
    ! is_drawn "$name" || value[$name]=${got[$name]}
  done
  value[ssh]=${value[ssh]:+True} value[ssh]=${value[ssh]:-False}
  rows=0
  for ((i = 0; i <= MAX_ROWS; i++)); do
    [[ ${got[fw_port$i]}${got[fw_to$i]}${got[fw_note$i]} ]] || continue
    for name in "${COLUMNS[@]}"; do value[$name$rows]=${got[$name$i]}; done
    ((++rows))
  done
}

# Checks of a TEXT.  They are patterns, since a regular expression costs ten
# times as much.
is_label() {
  [[ ${#1} -le 63 && $1 == [A-Za-z0-9]* && $1 != *[!A-Za-z0-9-]* && $1 != *- ]]
}

is_ip() {
  local IFS=. byte
  [[ ${#1} -le 15 && $1 != *[!0-9.]* && $1 != *. ]] || return
  # shellcheck disable=SC2086  # words
  set -- $1
  (($# == 4)) || return
  for byte; do
    [[ $byte && $byte != 0?* && $byte -le 255 ]] || return
  done
}

is_host() {
  local IFS=. label
  ! is_ip "$1" || return 0
  [[ ${#1} -le 253 && $1 != *. ]] || return
  for label in $1; do is_label "$label" || return; done
}

is_mail() {
  [[ ${#1} -le 121 && $1 == ?*@?* && ${1%@*} != *[!A-Za-z0-9._+-]* &&
    ${1##*@} != *[!A-Za-z0-9.-]* ]]
}

is_number() { # TEXT MAX
  [[ ${#1} -le 5 && $1 == [1-9]* && $1 != *[!0-9]* && $1 -le $2 ]]
}

is_text() { # TEXT MAX
  [[ ${#1} -le $2 && $1 != *[!\ -~]* ]]
}

is_one_of() { # TEXT ALLOWED...
  [[ $1 != *' '* && " ${*:2} " == *" $1 "* ]]
}

judge() { # NAME KEY
  local check=${CHECKS[$1]-${CHECKS[$1?]}}
  if [[ ${value[$2]} ]]; then
    # shellcheck disable=SC2086  # words
    ${check%% *} "${value[$2]}" ${check#"${check%% *}"}
  else
    [[ ${CHECKS[$1?]} ]]
  fi || errors[$2]=${MESSAGES[$1]}
}

check() {
  local name i proto port
  local -A seen=()
  for name in "${FIELDS[@]}"; do
    ! is_drawn "$name" || judge "$name" "$name"
  done
  if [[ ${value[addressing]} == yes && ${value[gateway]} &&
    ${value[gateway]} == "${value[ip_address]}" ]]; then
    errors[gateway]='The gateway must be another device than this one'
  fi
  if [[ ${value[dns2]} && -z ${value[dns1]} ]]; then
    errors[dns1]='Fill in the first name server before the second'
  fi
  for ((i = 0; i < rows; i++)); do
    for name in "${COLUMNS[@]}"; do judge "$name" "$name$i"; done
    [[ -z ${errors[fw_port$i]} ]] || continue
    port=${value[fw_port$i]}
    for proto in tcp udp; do
      [[ ${value[fw_proto$i]} == @($proto|both) ]] || continue
      if [[ ${seen[$proto$port]} ]]; then
        errors[fw_port$i]="Row ${seen[$proto$port]} has this port already"
      fi
      seen[$proto$port]=${seen[$proto$port]:-$((i + 1))}
    done
  done
  ((!${#errors[@]} && rows <= MAX_ROWS))
}

# Replaces the whole file: a reader sees the old one or the new.
store() {
  local text="rows=$rows"$'\n' name i new=$STORE.$$
  for name in "${FIELDS[@]}"; do text+=$name=${value[$name]}$'\n'; done
  for ((i = 0; i < rows; i++)); do
    for name in "${COLUMNS[@]}"; do
      text+=$name$i=${value[$name$i]}$'\n'
    done
  done
  if ! { printf %s "$text" >"$new" && mv -fT "$new" "$STORE"; }; then
    rm -f "$new"
    return 1
  fi
} 2>/dev/null

load
if [[ $REQUEST_METHOD == POST ]]; then
  from_here || refuse '403 Forbidden' 'The request was refused.'
  [[ $CONTENT_LENGTH =~ ^[0-9]{1,9}$ && $CONTENT_LENGTH -le MAX_BODY ]] ||
    refuse '413 Content Too Large' 'The request is too long.'
  take
  if ! check; then
    note='Nothing was saved yet. Please look at the marked fields.'
  elif store; then
    note='Your changes are saved.'
  else
    note='The settings could not be stored. Is the storage full?'
  fi
fi
form
send '200 OK'
