# shellcheck shell=bash
# The part of the library that a shown page does not need: what check and write
# scripts call, and what seldom happens.  All that is stored is written by
# orv-store(8): it takes the page's values, lets one save at a time in, and
# replaces files as one step.

# Lists of orv.bash, which are no arrays by number.
# shellcheck disable=SC2004,SC2034,SC2153,SC2154
export ORV_TEMPLATES=${ORV_TEMPLATES:-${BASH_SOURCE[0]%/*}/../templates}
export ORV_MIGRATE=${ORV_MIGRATE:-${BASH_SOURCE[0]%/*}/../migrate}
export ORV_ACTIONS=${ORV_ACTIONS:-${BASH_SOURCE[0]%/*}/../actions}
orv__program=${ORV_STORE:-${BASH_SOURCE[0]%/*}/orv-store} # or where PATH says
[[ $ORV_STORE || -x $orv__program ]] || orv__program='orv-store'
orv_lines=() orv__input=() orv__taken=0 orv__lock='' orv__told=0
orv__beyond='' orv__secrets=() orv__columns=() orv__guard=() orv__saved=()

# orv__ask COMMAND...: what orv-store answers, in `orv__answer`; a fault is the
# page's message.
orv__ask() {
  local - IFS=$'\n' text
  text=$(exec "$orv__program" "$@" 2>/dev/null)
  set -f
  # shellcheck disable=SC2206  # split into lines, and nothing more
  orv__answer=($text)
  [[ ${orv__answer[0]} != ok ]] || return 0
  text=${orv__answer[0]#fault }
  orv_msg "${text:-Nothing can be stored: the program orv-store does not run.}"
  return 1
}

# --- loading what orv.bash does not ---------------------------------------------

# orv__find FILE: for orv__load, whose `lines`, `stamp` and `cut` it sets: the
# stored file while a save goes on, of an older library, or one that is at fault.
orv__find() {
  local folder file found='' above=$ORV_STATE
  # A folder that may not be looked into is not one that is not there.
  until [[ -e $above || $above != */* ]]; do above=${above%/*}; done
  [[ -x ${above:-/} ]] || orv__unreadable "$ORV_STATE" || return
  file=$ORV_DEFAULTS/$1
  [[ ! -e $file || -r $file ]] || orv__unreadable "$file" || return
  # A transaction's files count for who takes part, and no request does; what a
  # save has committed is in .commit until it is moved to its place.
  for folder in ".stage.$ORV_TRANSACTION" .commit .; do
    file=$ORV_STATE/$folder/$1
    [[ $folder == .stage.* && ! ($ORV_TRANSACTION =~ ^[0-9a-f]{32}$ &&
      -z $REQUEST_METHOD$GATEWAY_INTERFACE) ]] && continue
    if [[ -f $file && ! -L $file ]] && mapfile -t lines <"$file"; then
      found=1 && break
    fi
    [[ ! -e $file && ! -L $file ]] || orv__unreadable "$file" || return
  done 2>/dev/null
  if [[ ${lines[0]} =~ ^'#orv 2 '([0-9]{1,18}' '.*)$ ]]; then
    stamp=${BASH_REMATCH[1]} cut=${lines[1]:7}
    cut=${cut/#\*/+([!=])} cut="@(${cut// /|})+([0-9])=*"
  elif [[ ${lines[0]} =~ ^'#orv '([0-9]+)(' '|$) ]]; then
    orv__unusable "The settings $1 are of a newer version (format ${BASH_REMATCH[1]})"
    return
  elif [[ $found ]]; then # which tables it holds is not known
    cut='+([!=])[0-9]=*' stamp="0 ${lines[0]##* }"
    [[ ${lines[*]} ]] || lines=('#') # an empty file is one
  fi
  orv__judge_version "$1"
}
# Values of another version of the form could mean something else; of an older
# one they mean the same where the maker has no program that changes them.
orv__judge_version() { # FILE
  local line stored='' known=1 pattern='^#version 0*([1-9][0-9]{0,8})$'
  for line in "${lines[@]}"; do
    [[ $line != [A-Za-z]*=* ]] || { stored=1 && break; }
  done
  [[ $stored ]] || return 0
  line=${lines[0]} && [[ $line != '#orv '* ]] || line=${lines[2]}
  [[ ! $line =~ $pattern ]] || stored=${BASH_REMATCH[1]}
  [[ ! ${shipped[0]} =~ $pattern ]] || known=${BASH_REMATCH[1]}
  if ((stored > known)); then
    orv__unusable "The settings $1 are of a newer version ($stored) than this device knows ($known)."
  elif ((stored < known)) && [[ -e $ORV_MIGRATE/${1%%@*} ]]; then
    orv__unusable "The settings $1 are of an older version ($stored), and were not brought to this device's ($known)."
  else
    return 0
  fi
  return 1
}
orv__unreadable() {
  orv__unusable "The settings cannot be read: $1 (as user ${EUID/#0/root})."
}
orv__unusable() { # TEXT: to read, a page without its values is an error page
  orv_fatal "$1"
  [[ $orv__task != --read ]] || exit 1
  return 1
}

# A save came between two files: all are loaded once more.
orv__reload() {
  local name file tries
  for tries in {1..10} ''; do
    unset orv__seen
    orv__look
    for name in "${!orv[@]}"; do # rows that are gone do not stay
      [[ $name != *[0-9] ]] || unset "orv[$name]"
    done
    for file in "${orv__files[@]}"; do orv__load "$file"; done
    orv__look && return
  done
  orv__unusable 'The settings change all the time. Please try again.'
}

# --- values and messages ------------------------------------------------------

# Takes the page's values, once; with a process's number, locks for that.
orv__take() {
  local line
  if ((orv__taken)) || [[ -t 0 ]]; then
    orv__ask input "$1" "$orv__form" </dev/null || return
    orv__lock=${orv__answer[1]#holder }
    return
  fi
  orv__taken=1
  orv__ask input "$1" "$orv__form" || return
  orv__lock=${orv__answer[1]#holder }
  orv__input=("${orv__answer[@]:2}")
}

# orv_read NAME...: of the page's values, those of these names.  "port#" stands
# for a column's cells, rows 0 to 99; a table comes as a whole, so its stored
# cells go first.  A value that still holds a quotation mark is dropped, and a
# fault: a name may end in it.
orv_read() {
  local line name key row value columns=''
  local -A wanted=([orv_stamp]=orv_stamp)
  ((orv__taken)) || orv__take -
  for name; do
    wanted[${name,,}]=${name%#}
    [[ $name != *# ]] || orv__columns+=("${name%#}") columns+="|${name%#}"
  done
  columns=${columns,,}
  for key in "${!orv[@]}"; do
    orv_was[$key]=${orv[$key]}
    [[ ${key,,} == @(${columns:1})*([0-9]) ]] && unset "orv[$key]"
  done
  for line in "${orv__input[@]}"; do
    name=${line%%=*} value=${line#*=}
    key=${wanted[$name]}
    if [[ -z $key && $name == *[0-9] ]]; then
      row=${name##*[!0-9]}
      key=${wanted[${name%"$row"}#]}
      case $row in
        [0-9] | [1-9][0-9]) key+=${key:+$row} ;;
        *)
          [[ -z $key || -z $value || $row == 0* ]] || orv__beyond+=" $key "
          key=''
          ;;
      esac
    fi
    if [[ $key && $value == *'"'* ]]; then
      orv_msg 'No value may hold a quotation mark.'
    elif [[ $key ]]; then
      orv[$key]=$value
    fi
  done
  orv__page=${orv[orv_stamp]} orv__got=1
  unset 'orv[orv_stamp]'
}

orv_secret() { # NAME...: blank means unchanged; stored, it leaves the page
  local name
  for name; do orv[$name]=${orv[$name]:-${orv_was[$name]}}; done
  orv__secrets+=("$@")
}

# A web server sets no ORV_SECRETS (orv removes it) and always REQUEST_METHOD.
orv__is_backup() {
  [[ $ORV_SECRETS && -z $REQUEST_METHOD ]]
}
orv_show_secrets() { # NAME...: to orvctl --secrets, never to a page
  orv__is_backup || return 0
  orv_show "$@"
}

# orv_show_hash NAME [FIELD]: to orvctl dump --secrets, what is stored of a
# secret that is kept as a hash, typed in FIELD (NAME).  It goes by a name of its
# own, which no field checks; one too long would be cut, and is named as missing.
orv_show_hash() {
  orv__is_backup && ((${#1} <= 45 && ${#1} + ${#orv[$1]} < 240)) || return 0
  orv_put "stored_$1" "${orv[$1]}"
  orv_put "${2:-$1}" ''
}

# orv_take_hash NAME PATTERN [FIELD]: where orvctl apply puts back a hash and
# nothing was typed in FIELD (NAME), takes it as it was stored: all of it must
# match the extended regular expression, since no check of a field has seen it.
orv_take_hash() {
  local line hash=''
  for line in "${orv__input[@]}"; do
    [[ $line != "stored_${1,,}="* ]] || hash=${line#*=}
  done
  orv__is_backup && [[ $hash && -z ${orv[${3:-$1}]} ]] || return 1
  if [[ ! $hash =~ ^($2)$ ]]; then
    orv_msg 'This device cannot use a password as the backup has it stored.'
    return 1
  fi
  orv[$1]=$hash
  orv_secret "$1"
}

orv_one_of() { # VALUE ALLOWED...
  local value=$1 IFS=' '
  shift
  [[ ${#value} -le 99 && $value != *' '* && " $* " == *" $value "* ]]
}

# orv_number NAME...: makes numbers plain decimals, of 0900, 0x10, -5, +3; 1 when
# one is none, is blank or too long for bash, which stays as it is.
orv_number() {
  local name number all=0
  for name; do
    if [[ ${orv[$name]} =~ ^([-+]?)0*([0-9]{1,18})$ ]]; then
      number=$((10#${BASH_REMATCH[2]}))
    elif [[ ${orv[$name]} =~ ^([-+]?)0[xX]0*([0-9a-fA-F]{1,15})$ ]]; then
      number=$((16#${BASH_REMATCH[2]}))
    else
      all=1
      continue
    fi
    [[ ${BASH_REMATCH[1]} != - || $number == 0 ]] || number=-$number
    orv[$name]=$number
  done
  return $all
}

# In REPLY: TEXT as one line of at most BYTES, cut between characters.  With
# SHOWN, "$" is written as pages want it, where it would insert values.
orv__line() { # TEXT BYTES [SHOWN]
  REPLY=${1:0:$2}
  [[ ${#1} -gt $2 && $REPLY == *[$'\x80'-$'\xff'] ]] &&
    REPLY=${REPLY%[$'\xc0'-$'\xff']*}
  REPLY=${REPLY//[[:cntrl:]]/ }
  [[ $3 && $REPLY == *\$* ]] || return 0
  orv__line "$REPLY" $(($2 / 3)) && REPLY=${REPLY//\$/\$\$\$}
}
orv__cut() { # NAME VALUE: what one line holds of it
  orv__line "$2" $((246 - ${#1}))
  printf '%s="%s"\n' "$1" "$REPLY"
  [[ $REPLY == "$2" ]]
}

# orv_error NAME TEXT [ROW]: a message beside a field, or of a table's column;
# with a row's number, counted from 0, only that cell is marked.  orv_msg TEXT:
# one of the page, the first counts.  orv_fatal TEXT: the form makes no sense.
# orv_end: ends a check, for marked fields need a message at the top.
orv_error() {
  local name=${1:0:50}${3:0:5}
  orv_failed=1
  orv__line "$2" $((240 - ${#name})) shown
  printf 'error_%s="%s"\n' "${name//[!A-Za-z0-9_]/_}" "$REPLY"
}
orv_msg() {
  ((orv__told)) || orv_error msg "$1"
  orv_failed=1 orv__told=1
}
orv_fatal() { orv_msg "$1" && echo 'error_fatal=yes'; }
orv_end() {
  ((!orv_failed)) ||
    orv_msg 'Nothing was saved yet. Please look at the marked fields.'
}

# Refuses a page whose state was replaced since, unless by itself: its user went
# Back.  A request without a stamp comes from no page and passes.
orv__judge_stamp() {
  local stamp page=$orv__page
  [[ $page ]] || return 0
  [[ $page =~ ^[0-9]{1,18}' '[0-9.]{1,40}$ ]] || page='0 none'
  for stamp in "${orv__stamps[@]}"; do
    ((10#${stamp% *} <= 10#${page% *})) || [[ ${stamp#* } == "${page#* }" ]] ||
      orv_msg 'This page is older than the last save. Please open it again.'
  done
  return 0
}

# --- storing ------------------------------------------------------------------

# orv_lock: no other save meanwhile, until the script ends.  Judge what another
# save may have changed behind it, once more.
orv_lock() {
  [[ $orv__lock ]] || orv__take "$BASHPID"
}
orv_unlock() { # what holds the lock is a process of its own
  ((orv__lock <= 1)) || kill "$orv__lock" 2>/dev/null
  orv__lock=''
}

# orv_store FILE NAME... [-- FILE NAME...]: replaces these files by the values at
# hand, as one step; nothing after a fault.
orv_store() {
  local name file='' line order owner=${orv__page##* }
  orv_lock && ((!orv_failed)) || return 1
  [[ $owner =~ ^[0-9.]{1,40}$ ]] || owner=$orv__token
  order="@owner $owner"$'\n'
  for name in "${orv__columns[@]}"; do order+="@table $name"$'\n'; done
  for name in "${orv__secrets[@]}"; do order+="@secret $name"$'\n'; done
  for name in "${!orv_label[@]}"; do
    order+="@label $name=${orv_label[$name]//[[:cntrl:]]/ }"$'\n'
  done
  line="${orv__guard[*]}"
  [[ ${orv__guard[1]} != orv_act ]] || line="${orv__guard[0]} act ${orv__guard[2]}"
  ((!${#orv__guard[@]})) || order+="@guard ${line//[[:cntrl:]]/ }"$'\n'
  for name; do
    if [[ $name == -- ]]; then
      file=''
    elif [[ -z $file ]]; then
      file=$name order+="> ${file//[[:cntrl:]]/ }"$'\n'
    elif [[ ${orv[$name]} == *[[:cntrl:]]* ]]; then
      orv_msg 'Nothing was saved: no value may hold one of " $ \ `'
    else
      order+="$name=${orv[$name]}"$'\n'
    fi
  done
  ((!orv_failed)) && orv__ask store "$orv__lock" "$orv__form" \
    ${orv__subitem:+"$orv__subitem"} < <(printf %s "$order") || return 1
  for line in "${orv__answer[@]:1}"; do
    case $line in
      'page '*) orv__saved+=("${line#page }") ;;
      'line '*) orv_lines+=("${line#line }") ;;
      'pending '*)
        printf 'u_saved_pending="%s"\nu_saved_navbar=True\n' "${line#pending }"
        ;;
      'guard '*) orv_background orv__watch "${line#guard }" "${orv__guard[@]}" ;;
    esac
  done
  for name in "${orv__secrets[@]}"; do
    printf 'u_%s=\n' "$name" # the page that confirms shall not carry it on
  done
  orv__guard=()
}

# orv_reset [FILE...]: the settings of these files, or all, as shipped.
orv_reset() {
  orv_unlock # it takes the lock by itself
  orv__ask reset "$@" </dev/null
}

# orv_changes: what changed, to the page that confirms, as saved_change0 to
# saved_change11, each with the end of its line: "Device name: a → b".
orv_changes() {
  local i report='' more=$((${#orv__saved[@]} - 11))
  local lines=("${orv__saved[@]:0:12}")
  ((more < 2)) || lines[11]="and $more more\$L\$"
  for i in {0..11}; do report+="u_saved_change$i=\"${lines[i]}\""$'\n'; done
  printf %s "$report"
}

# orv_log_changes: the same to the system log, with who did it from where; of a
# transaction once it is committed.
orv_log_changes() {
  local IFS=$'\n'
  ((!${#orv_lines[@]})) || "$orv__program" log <<<"${orv_lines[*]}"
  return 0
} 2>/dev/null

# orv_act NAME [SECONDS]: asks for what needs more rights than scripts have: the
# device's program actions/NAME, which its service larkspur-acts runs.  With
# SECONDS, waits for its end, and what it printed is in orv_acted.  A fault is the
# page's message.
orv_act() {
  orv_acted=()
  orv__ask act "$1" ${2:+--wait "$2"} </dev/null || return
  orv_acted=("${orv__answer[@]:1}")
  orv_acted=("${orv_acted[@]#line }")
}

# orv_history LINES: the last saves, the newest first, to a page: when, who and
# which form, then what changed, as history0 to history<LINES-1>, each with the
# end of its line.
orv_history() {
  local kind rest number seconds user address form how place=0
  while ((place < $1)) && read -r kind rest; do
    if [[ $kind == @ ]]; then
      read -r number seconds user address form how <<<"$rest"
      user=${user/#-/somebody}
      [[ $address == - ]] || user+=" at $address"
      [[ $form != - ]] || form=device
      printf -v rest '%(%Y-%m-%d %H:%M:%S)T' "$seconds"
      orv__line "$user, $form ${how/#back/went back}" 150 shown
      REPLY="\$B\$$rest\$R\$ $REPLY"
      ((!place)) || REPLY="\$L\$$REPLY" # a blank line between saves
    elif [[ $kind == = ]]; then
      orv__line "$rest" 210 shown
    else
      continue
    fi
    printf 'history%d="%s%s"\n' $((place++)) "$REPLY" "\$L\$"
  done < <("$orv__program" history 2>/dev/null)
}

# --- while and after the page goes out ----------------------------------------

# orv_background COMMAND...: does not hold the page, outlives the script.  Within
# a transaction it waits for the end of that, and runs if it was committed.
orv_background() (
  trap '' HUP # a terminal or a web server that ends does not end it
  if [[ $ORV_TRANSACTION ]]; then
    if exec 3<"$ORV_STATE/.stage.$ORV_TRANSACTION/.outcome"; then
      set -- orv__wait "$@"
    elif [[ $orv__lock == 0 ]]; then # it took part, and that is over
      return 0
    fi
  fi
  orv__lock=''
  set -m # a process group of its own
  "$@" </dev/null >/dev/null 2>&1 &
) 2>/dev/null
orv__wait() {
  "$orv__program" wait 3 || return
  exec 3<&-
  unset ORV_TRANSACTION
  "$@"
}

orv_after_page() { # SECONDS COMMAND...
  orv_background orv__after "$@"
}
orv__after() {
  sleep "$1" && "${@:2}"
}

# --- a change that goes back unless it is kept ---------------------------

# orv_guard SECONDS [COMMAND...]: the next orv_store keeps what it replaces, and
# puts it back unless somebody keeps the change within that time, by a Submit of
# the form `confirm` or by "orvctl confirm".  COMMAND makes the device use what is
# stored: it runs a second after the save, before the change can be kept, and
# again when the settings go back.
orv_guard() {
  [[ $1 =~ ^[1-9][0-9]{0,5}$ ]] || orv_msg 'orv_guard lacks its seconds.'
  orv__guard=("$@")
  trap '' HUP # nothing comes between the save and who watches it
}

orv__watch() { # TOKEN SECONDS [COMMAND...]
  if (($# > 2)); then
    sleep 1
    "${@:3}"
    "$orv__program" arm "$1"
  fi
  # As long as we read what it says, no later change's command begins.
  exec 3< <(exec "$orv__program" watch "$1" --hold)
  read -r REPLY <&3 && [[ $REPLY == ok ]] && orv__went_back "${@:3}" 3<&-
  exec 3<&-
}

# A function orv_went_back of the script's own can tell a log of its own.
orv__went_back() { # [COMMAND...]
  ! declare -F orv_went_back >/dev/null || orv_went_back
  "$@"
}

# orv_guard_boot [COMMAND...]: for a boot script, before the settings are used.
# Puts back what nobody confirmed (then COMMAND runs), ends a save cut short.
orv_guard_boot() {
  "$orv__program" boot >/dev/null 2>&1 && orv__went_back "$@"
  return 0
}
