#!/usr/bin/haserl
<%# The form of the gateway's settings, kept as assignments that the shell reads
    (every value quoted).  Nothing but the last step of a save starts a program,
    and nothing forks. %><%
set -f
export PATH=/usr/bin:/bin LC_ALL=C
umask 077

STORE=../state/gateway
MAX_BODY=65536
MAX_ROWS=32
FIELDS='host_name location contact addressing ip_address prefix gateway dns1
dns2 ntp log_level ssh'
COLUMNS='fw_proto fw_port fw_to fw_note'
NL='
'
CHOOSE='Choose one of the entries'
page='' note='' status='200 OK' refused='' failed='' rows=0 msg_rows=''

# --- checks: TEXT ---

is_label() {
  case $1 in '' | -* | *- | *[!A-Za-z0-9-]*) return 1 ;; esac
  [ ${#1} -le 63 ]
}

is_ip() {
  local IFS=. byte
  case $1 in '' | *[!0-9.]* | .* | *. | *..*) return 1 ;; esac
  set -- $1
  [ $# = 4 ] || return
  for byte; do
    case $byte in 0?* | ????*) return 1 ;; esac
    [ "$byte" -le 255 ] || return
  done
}

is_host() {
  local IFS=. label
  ! is_ip "$1" || return 0
  case $1 in .* | *. | *..*) return 1 ;; esac
  [ ${#1} -le 253 ] || return
  for label in $1; do is_label "$label" || return; done
}

is_mail() {
  case ${1%@*} in '' | *[!A-Za-z0-9._+-]*) return 1 ;; esac
  case ${1##*@} in '' | "$1" | *[!A-Za-z0-9.-]*) return 1 ;; esac
  [ ${#1} -le 121 ]
}

is_number() { # TEXT MAX
  case $1 in 0* | *[!0-9]* | ??????*) return 1 ;; esac
  [ "$1" -le "$2" ]
}

is_text() { # TEXT MAX
  case $1 in *[!\ -~]*) return 1 ;; esac
  [ ${#1} -le "$2" ]
}

is_one_of() { # TEXT ALLOWED...
  local text=$1 allowed
  shift
  for allowed; do [ "$text" != "$allowed" ] || return 0; done
  return 1
}

# refuse_unless NAME MESSAGE CHECK...: checks the value NAME; with "?" in front
# of the name a blank value passes.
refuse_unless() {
  local name=${1#\?} message=$2 check=$3 text
  eval "text=\$v_$name"
  if [ "$name" != "$1" ] && [ -z "$text" ]; then
    return
  fi
  shift 3
  "$check" "$text" "$@" || refuse_value "$name" "$message"
}

refuse_value() { # NAME MESSAGE
  eval "msg_$1=\$2"
  failed=1
}

check() {
  local i=0 port proto protos other
  refuse_unless host_name 'Use letters, digits and hyphens, 63 at most' is_label
  refuse_unless '?location' 'Use 60 characters at most' is_text 60
  refuse_unless '?contact' 'Enter a mail address' is_mail
  refuse_unless addressing "$CHOOSE" is_one_of no yes
  if [ "$v_addressing" = yes ]; then
    refuse_unless ip_address 'Enter an address such as 192.168.1.20' is_ip
    refuse_unless prefix 'Enter a number from 1 to 30' is_number 30
    refuse_unless '?gateway' 'Enter an address such as 192.168.1.1' is_ip
    if [ "$v_gateway" ] && [ "$v_gateway" = "$v_ip_address" ]; then
      refuse_value gateway 'The gateway must be another device than this one'
    fi
  fi
  refuse_unless '?dns1' 'Enter an address such as 9.9.9.9' is_ip
  refuse_unless '?dns2' 'Enter an address such as 9.9.9.9' is_ip
  if [ "$v_dns2" ] && [ -z "$v_dns1" ]; then
    refuse_value dns1 'Fill in the first name server before the second'
  fi
  refuse_unless '?ntp' 'Enter a host name or an address' is_host
  refuse_unless log_level "$CHOOSE" is_one_of error notice debug
  while [ $i -lt $rows ]; do
    refuse_unless fw_proto$i "$CHOOSE" is_one_of tcp udp both
    refuse_unless fw_port$i 'Enter a port, 1 to 65535' is_number 65535
    refuse_unless fw_to$i 'Enter an address such as 192.168.1.50' is_ip
    refuse_unless "?fw_note$i" 'Use 40 characters at most' is_text 40
    eval "port=\$v_fw_port$i proto=\$v_fw_proto$i"
    i=$((i + 1))
    is_number "$port" 65535 || continue
    case $proto in
      tcp | udp) protos=$proto ;;
      both) protos='tcp udp' ;;
      *) protos='' ;;
    esac
    for proto in $protos; do
      eval "other=\${seen_$proto$port:=$i}"
      [ "$other" = $i ] ||
        refuse_value fw_port$((i - 1)) "Row $other has this port already"
    done
  done
  [ -z "$failed" ] && [ $rows -le $MAX_ROWS ]
}

# --- the page ---

esc() { # TEXT: sets REPLY to it as HTML
  local rest=$1 head
  REPLY=''
  while :; do
    head=${rest%%[\&\<\>\"\']*}
    REPLY=$REPLY$head rest=${rest#"$head"}
    case $rest in
      '&'*) REPLY="$REPLY&amp;" ;;
      '<'*) REPLY="$REPLY&lt;" ;;
      '>'*) REPLY="$REPLY&gt;" ;;
      '"'*) REPLY="$REPLY&quot;" ;;
      "'"*) REPLY="$REPLY&#39;" ;;
      *) return ;;
    esac
    rest=${rest#?}
  done
}

# begin KEY ARIA: sets `text`, `message` and `more` to the parts of a control.
begin() {
  eval "text=\$v_$1 message=\$msg_$1"
  more=" id=\"$1\"${2:+ aria-label=\"$2\"}"
  [ -z "$message" ] ||
    more="$more aria-invalid=\"true\" aria-describedby=\"$1-error\""
}

finish() { # KEY HINT
  page="$page${2:+ <small>$2</small>}"
  if [ "$message" ]; then
    esc "$message"
    page="$page<br><em id=\"$1-error\">$REPLY</em>"
  fi
}

input() { # KEY SIZE [HINT [ARIA]]
  local text message more
  begin "$1" "$4"
  esc "$text"
  page="$page<input name=\"$1\" value=\"$REPLY\" size=\"$2\"$more>"
  finish "$1" "$3"
}

choose() { # KEY ARIA [VALUE TEXT]...
  local key=$1 text message more selected
  begin "$1" "$2"
  page="$page<select name=\"$key\"$more>$NL"
  shift 2
  while [ $# -gt 0 ]; do
    selected=''
    [ "$1" != "$text" ] || selected=' selected'
    page="$page<option value=\"$1\"$selected>$2</option>$NL"
    shift 2
  done
  page="$page</select>"
  finish "$key"
}

row() { # NAME LABEL CONTROL ARGUMENT...
  page="$page<tr><th><label for=\"$1\">$2</label></th><td>"
  shift 2
  "$@"
  page="$page</td></tr>$NL"
}

form() {
  local i=0 ticked=''
  row host_name 'Device name' input host_name 24 'For example gateway-1'
  row location Location input location 30
  row contact Contact input contact 30 'A mail address'
  row addressing Addressing choose addressing '' no Automatic yes Static
  if [ "$v_addressing" = yes ]; then
    row ip_address Address input ip_address 15 'For example 192.168.1.20'
    row prefix 'Network size' input prefix 2 '1 to 30, usually 24'
    row gateway Gateway input gateway 15
  fi
  row dns1 'Name server' input dns1 15
  row dns2 'Second name server' input dns2 15
  row ntp 'Time server' input ntp 30 'A host name or an address'
  row log_level Log choose log_level '' error Errors notice Events \
    debug Everything
  [ "$v_ssh" != True ] || ticked=' checked'
  page="$page<tr><th><label for=\"ssh\">Remote login</label></th><td><input \
type=\"checkbox\" name=\"ssh\" value=\"True\" id=\"ssh\"$ticked></td></tr>
</table>
<h2>Port forwards</h2>
<table>
<tr><th>Protocol</th><th>Outside port</th><th>Device</th><th>Note</th></tr>$NL"
  while [ $i -le $rows ]; do
    page="$page<tr><td>"
    choose fw_proto$i "Protocol, row $((i + 1))" tcp TCP udp UDP both Both
    page="$page</td><td>"
    input fw_port$i 5 '' "Outside port, row $((i + 1))"
    page="$page</td><td>"
    input fw_to$i 15 '' "Device, row $((i + 1))"
    page="$page</td><td>"
    input fw_note$i 20 '' "Note, row $((i + 1))"
    page="$page</td></tr>$NL"
    i=$((i + 1))
  done
}

# --- the request ---

from_here() {
  if [ "$HTTP_SEC_FETCH_SITE" ]; then
    is_one_of "$HTTP_SEC_FETCH_SITE" same-origin none
  elif [ "$HTTP_ORIGIN" ]; then
    is_one_of "$HTTP_ORIGIN" "http://$HTTP_HOST" "https://$HTTP_HOST"
  fi
}

# Replaces the stored values by the posted ones; rows in use move together.
take() {
  local name i=0 used
  v_addressing=$POST_addressing
  for name in $FIELDS; do
    case $v_addressing.$name in
      yes.*) trim "$name" "$name" ;;
      *.ip_address | *.prefix | *.gateway) ;; # not drawn: it stays
      *) trim "$name" "$name" ;;
    esac
  done
  v_ssh=${POST_ssh:+True} v_ssh=${v_ssh:-False} rows=0
  while [ $i -le $MAX_ROWS ]; do
    eval "used=\$POST_fw_port$i\$POST_fw_to$i\$POST_fw_note$i"
    if [ "$used" ]; then
      for name in $COLUMNS; do trim "$name$rows" "$name$i"; done
      rows=$((rows + 1))
    fi
    i=$((i + 1))
  done
}

trim() { # NAME POSTED: sets the value without blanks at both ends
  local text
  eval "text=\$POST_$2"
  text=${text#"${text%%[! ]*}"}
  text=${text%"${text##*[! ]}"}
  eval "v_$1=\$text"
}

# Replaces the whole file: a reader sees the old one or the new.
store() {
  local out="rows=$rows$NL" name i=0 names=$FIELDS text new=$STORE.$$
  while [ $i -lt $rows ]; do
    for name in $COLUMNS; do names="$names $name$i"; done
    i=$((i + 1))
  done
  for name in $names; do
    eval "text=\$v_$name"
    quote "$text"
    out="${out}v_$name='$REPLY'$NL"
  done
  if { printf %s "$out" >"$new" && mv -fT "$new" "$STORE"; } 2>/dev/null; then
    return
  fi
  rm -f "$new"
  return 1
}

quote() { # TEXT: sets REPLY; each ' closes the quotes and opens them again
  local rest=$1
  REPLY=''
  while :; do
    case $rest in
      *\'*) REPLY="$REPLY${rest%%\'*}'\\''" rest=${rest#*\'} ;;
      *) REPLY=$REPLY$rest && return ;;
    esac
  done
}

[ ! -r $STORE ] || . $STORE
if [ "$REQUEST_METHOD" = POST ]; then
  if ! from_here; then
    status='403 Forbidden' refused='The request was refused.'
  elif [ "${CONTENT_LENGTH:-0}" -gt $MAX_BODY ]; then
    status='413 Content Too Large' refused='The request is too long.'
  else
    take
    if ! check; then
      note='Nothing was saved yet. Please look at the marked fields.'
    elif store; then
      note='Your changes are saved.'
    else
      note='The settings could not be stored. Is the storage full?'
    fi
  fi
fi
form
%>Status: <% printf %s "$status" %>
Content-Type: text/html; charset=utf-8
Cache-Control: private, no-cache
X-Content-Type-Options: nosniff
X-Frame-Options: SAMEORIGIN
Content-Security-Policy: default-src 'none'; style-src 'self'; form-action 'self'; frame-ancestors 'self'; base-uri 'none'

<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width">
<title>Gateway</title>
<link rel="stylesheet" href="/style.css">
</head>
<body>
<nav><ul>
<li><a href="gateway.cgi">Gateway</a></li>
<li><a href="status.cgi">Status</a></li>
<li><a href="users.cgi">Users</a></li>
<li><a href="log.cgi">Log</a></li>
<li><a href="system.cgi">System</a></li>
</ul></nav>
<main>
<h1>Gateway</h1>
<% if [ "$refused" ]; then %><p><% printf %s "$refused" %></p>
<% else
[ -z "$note" ] || printf '<p role="status">%s</p>\n' "$note" %>
<form method="post" action="gateway.cgi">
<table>
<% printf %s "$page" %></table>
<p><input type="submit" value="Submit"></p>
</form>
<% fi %></main>
</body>
</html>
