# shellcheck shell=bash
# The other half of orv.bash, which reads it when one of these functions is
# called: what check and write scripts need and a shown page does not, so that
# it costs such a page nothing.
#
# Storing starts mv, cp, rm, mkdir, rmdir, sync, flock and sleep; without logger
# nothing is logged.  Values are judged before anything is written; a file
# appears as a whole, several appear as one step, and a power cut leaves the old
# settings or the new.

# What orv.bash sets or reads; its lists are no arrays by number.
# shellcheck disable=SC2004,SC2034,SC2154
ORV_TEMPLATES=${ORV_TEMPLATES:-${BASH_SOURCE[0]%/*}/../templates}
orv_lines=() orv__stored=() orv__guard=()
declare -gA orv__hashes=()

# --- values and messages ------------------------------------------------------

# orv_read NAME...: of the page's values, lines new_NAME="VALUE" on standard
# input, those of these names.  "port#" stands for a column's cells, rows 0 to
# 99; a table comes as a whole, so its stored cells go first.  A value that
# still holds a quotation mark is dropped, and a fault: a name may end in it.
orv_read() {
  local - IFS=$'\n' text line name key row length
  local -A wanted=([orv_stamp]=orv_stamp) seen=()
  for name; do wanted[${name,,}]=$name; done
  for key in "${!orv[@]}"; do
    orv_was[$key]=${orv[$key]} name=${key%"${key##*[!0-9]}"}
    [[ ${wanted[${name,,}#]} ]] && unset "orv[$key]"
  done
  # As one piece, since from a pipe lines are read byte by byte.
  IFS= read -r -d '' -N 8000000 text
  set -f
  # shellcheck disable=SC2086  # split into lines, and nothing more
  for line in $text; do
    name=${line:4:51} # cut before a pattern meets it
    name=${name%%=*} name=${name,,} row=${name##*[!0-9]}
    length=$((${#line} - ${#name} - 7))
    [[ $name && $name != *[!a-z0-9_]* && $length -ge 0 && ${line: -1} == '"' &&
      ${line:0:4}${line:4+${#name}:2} == 'new_="' ]] || continue
    key=${wanted[$name]}
    if [[ -z $key && ($row == [0-9] || $row == [1-9][0-9]) ]]; then
      key=${wanted[${name%"$row"}#]}
      key=${key:+${key%\#}$row}
    fi
    text=${line:6+${#name}:length < 999 ? length : 999} # more is never stored
    if [[ -z $key ]]; then
      orv__set_aside
      continue
    fi
    if [[ ${seen[$key]} ]]; then
      orv_msg 'The request says something twice.'
    elif [[ $text == *'"'* ]]; then
      orv_msg 'No value may hold a quotation mark.' && continue
    fi
    [[ $text == *[!\ $'\t']* ]] || text='' # blank text passes as it was typed
    seen[$key]=1 orv[$key]=$text
  done
  orv__page=${orv[orv_stamp]} orv__got=1
  unset 'orv[orv_stamp]'
}

# orv__set_aside: of what nobody asked for, what may be missed later on: a hash
# of a backup, and the columns that hold something behind the last row.
orv__set_aside() {
  if [[ $name == stored_* ]] && orv__is_backup && [[ $text != *'"'* ]]; then
    orv__hashes[${name#stored_}]=$text
  elif [[ $row == [1-9][0-9][0-9]* && ${wanted[${name%"$row"}#]} &&
    $text == *[!\ $'\t']* ]]; then
    orv__beyond+=" ${wanted[${name%"$row"}#]%\#} "
  fi
}

# orv_take_hash NAME PATTERN [FIELD]: where orvctl apply puts back a hash and
# nothing was typed in FIELD (NAME), takes it as it was stored: all of it must
# match the extended regular expression, since no check of a field has seen it.
orv_take_hash() {
  local hash=${orv__hashes[${1,,}]}
  [[ -z $hash || ${orv[${3:-$1}]} ]] && return 1
  if [[ ! $hash =~ ^($2)$ ]]; then
    orv_msg 'This device cannot use a password as the backup has it stored.'
    return 1
  fi
  orv[$1]=$hash
  orv_secret "$1"
}

orv_secret() { # NAME...: blank means unchanged; stored, it leaves the page
  local name
  for name; do orv[$name]=${orv[$name]:-${orv_was[$name]}}; done
  orv__secrets+=("$@")
}
# orv__is_secret_name NAME: whether a text of that name is a secret, as orv and
# orvctl see it.
orv__is_secret_name() {
  local name=${1%"${1##*[!0-9]}"}
  [[ ${name,,} =~ (passw(or)?d|passphrase|_(secret|pin|psk|token))$ ]]
}
orv__is_secret() { # no page holds it, so it may be a hash, which has "$"
  local IFS=' '
  [[ " ${orv__secrets[*]} " == *" $1 "* ]]
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

# orv_error NAME TEXT [ROW]: a message beside a field, or of a table's column;
# with a row's number, counted from 0, only that cell is marked.  orv_msg TEXT:
# one of the page, the first counts.  orv_fatal TEXT: the form makes no sense.  orv_end: ends a
# check, for marked fields need a message at the top.
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

# --- storing ------------------------------------------------------------------

# orv_lock: no other save meanwhile, until the script ends.  Judge what another
# save may have changed behind it, once more.
orv_lock() {
  [[ $orv__lock ]] && return
  [[ -d $ORV_STATE ]] || mkdir -p -- "$ORV_STATE" 2>/dev/null
  if ! type -P flock sync mv >/dev/null; then
    orv_msg 'Nothing can be stored: this device lacks flock, sync or mv.'
  elif ! { exec {orv__lock}>>"$ORV_STATE/.lock" && flock -w 30 "$orv__lock"; }
  then
    orv__lock=''
    orv_msg 'The settings are in use or cannot be written. Please try again.'
  fi 2>/dev/null
  [[ $orv__lock ]] && trap orv_unlock EXIT && orv__finish
}

# Set free by hand, for a daemon that was started meanwhile has inherited it.
orv_unlock() {
  if [[ $orv__lock ]]; then
    flock -u "$orv__lock"
    exec {orv__lock}>&-
    orv__lock=''
  fi
} 2>/dev/null

# Moves what was committed to its place, and removes what never was.
orv__finish() {
  local left=("$ORV_STATE"/.new.*)
  [[ ! -e ${left[0]} ]] || rm -rf -- "${left[@]}"
  if [[ -d $ORV_STATE/.commit ]]; then
    mv -f -- "$ORV_STATE"/.commit/* "$ORV_STATE"
    if [[ -d $ORV_STATE/.commit/.pending ]]; then
      rm -rf -- "$ORV_STATE/.pending"
      mv -- "$ORV_STATE/.commit/.pending" "$ORV_STATE"
    fi
    rmdir -- "$ORV_STATE/.commit"
  fi
  return 0
} 2>/dev/null

# orv_store FILE NAME... [-- FILE NAME...]: replaces these files by the values
# at hand; nothing after a fault.  They are written into a folder of their own,
# and its new name commits them all: from then on they are read there.  They are
# moved to their places at once or, after a power cut, by the next save or
# orv_guard_boot.  Who reads the files by other means sees the old ones, or some
# old and some new, until then.
orv_store() {
  local name file='' value owner=${orv__page##* }
  local new=$ORV_STATE/.new.$orv__token # the process number is part of it
  local -A content=()
  orv_lock || return 1
  [[ $owner =~ ^[0-9.]{1,40}$ ]] || owner=$orv__token
  for name; do
    value=${orv[$name]}
    if [[ $name == -- ]]; then
      file=''
    elif [[ -z $file ]]; then
      file=$name content[$file]="#orv $orv__token $owner"$'\n'
      orv__is_word "$file" || orv_msg 'This is no name of a settings file.'
    elif ((${#name} + ${#value} > 246)); then # no page could show it again
      orv_msg 'Nothing was saved: a value is too long.'
    elif [[ $value == *[[:cntrl:]\"\\\`]* ]] ||
      { [[ $value == *\$* ]] && ! orv__is_secret "$name"; }; then
      orv_msg 'Nothing was saved: no value may hold one of " $ \ `'
    else
      content[$file]+=$name=$value$'\n' orv__stored+=("$name")
    fi
  done
  ((!orv_failed)) || return 1
  if ! { mkdir -- "$new" && orv__write && orv__keep "${!content[@]}" &&
    mv -T -- "$new" "$ORV_STATE/.commit"; } 2>/dev/null; then
    rm -rf -- "$new"
    orv_msg 'The settings could not be stored. Is the storage full?'
    return 1
  fi
  orv__finish
  for name in "${orv__secrets[@]}"; do
    printf 'u_%s=\n' "$name" # the page that confirms shall not carry it on
  done
  ((!${#orv__guard[@]})) || orv_background orv__watch "${orv__guard[@]}"
  orv__guard=()
}

orv__write() { # the `content` of each file into `new`
  local file
  for file in "${!content[@]}"; do
    printf '%s' "${content[$file]}" >"$new/$file" || return
  done
  sync -- "$new"/* "$new" || sync
}

# --- while and after the page goes out ----------------------------------------

# orv_background COMMAND...: holds neither page nor lock, outlives the script.
orv_background() (
  [[ -z $orv__lock ]] || exec {orv__lock}>&-
  orv__lock=''
  unset REQUEST_METHOD # orv_load confirms nothing here
  set -m # a process group of its own
  "$@" </dev/null >/dev/null 2>&1 &
) 2>/dev/null

orv_after_page() { # SECONDS COMMAND...
  orv_background orv__after "$@"
}
orv__after() {
  sleep "$1" && "${@:2}"
}

# --- a change that goes back unless it is confirmed ---------------------------

# orv_guard SECONDS [COMMAND...]: the next orv_store keeps what it replaces, and
# puts it back unless a page is opened within that time.  COMMAND makes the
# device use what is stored: it runs a second after the save, and again when the
# settings go back.  Only a page opened behind its first end confirms.
orv_guard() {
  [[ $1 =~ ^[1-9][0-9]{0,5}$ ]] || orv_msg 'orv_guard lacks its seconds.'
  orv__guard=("$@")
}

# What a change that nobody confirmed yet has kept is older, and stays.  All of
# it is committed with the files: a save that fails leaves it as it was.
orv__keep() { # FILE...
  local file from old=$ORV_STATE/.pending keep=$new/.pending
  ((${#orv__guard[@]})) || return 0
  if [[ -d $old ]]; then
    cp -R -- "$old" "$keep" && rm -f -- "$keep/.armed"
  else
    mkdir -- "$keep"
  fi && printf '%s' "$orv__token" >"$keep/.token" || return
  for file; do
    for from in {"$keep","$ORV_STATE","$ORV_DEFAULTS"}/"$file" /dev/null; do
      [[ ! -r $from ]] || break
    done
    [[ $from == "$keep/$file" ]] || cp -- "$from" "$keep/$file" || return
  done
  ((${#orv__guard[@]} > 1)) || : >"$keep/.armed" || return
  sync -- "$keep"/* "$keep"/.* || sync
}

orv__watch() { # SECONDS [COMMAND...]
  if (($# > 1)); then
    sleep 1
    "${@:2}"
    orv__is_watched && : >"$ORV_STATE/.pending/.armed"
  fi
  sleep "$1"
  while orv__is_watched && ! orv_lock; do
    sleep 1 # a save may take long, but this must not be given up
  done
  orv__is_watched && orv_guard_boot "${@:2}"
}

orv__is_watched() { # nobody confirmed it, and no later change took over
  [[ $(<"$ORV_STATE/.pending/.token") == "$orv__token" ]]
}

# orv_guard_boot [COMMAND...]: for a boot script, before the settings are used.
# Puts back what nobody confirmed (then COMMAND runs), ends a save cut short.
orv_guard_boot() {
  orv_lock && [[ -d $ORV_STATE/.pending ]] || return 0
  rm -f -- "$ORV_STATE"/.pending/.[at]*
  mv -T -- "$ORV_STATE/.pending" "$ORV_STATE/.commit" && orv__finish
  logger -t orv 'Nobody confirmed the change: the old settings are back'
  orv_unlock
  "$@"
} 2>/dev/null

# --- what changed -------------------------------------------------------------

# orv__describe ARROW: in `orv_lines`, what this script has changed, one line a
# value, by the labels and choices of the form's template.
orv__describe() {
  local line name=- column row what old new IFS=' '
  local -A label=() entry=() told=() shown=() # shown: boxes and lists
  orv_lines=()
  orv__is_word "$orv__form" && [[ -r $ORV_TEMPLATES/$orv__form.tpl ]] &&
    while IFS= read -r line || [[ $line ]]; do
      what=${line#* }
      case ${line%% *} in
        field | fixed) name=${what%% *} ;;
        select | iselect) name=${what%% *} shown[$name]=1 ;;
        checkbox)
          name=${what%% *} shown[$name]=1
          entry[$name.True]=on entry[$name.False]=off
          ;;
        label) label[$name]=$what ;;
        choice) entry[$name.${what%% *}]=${what#* } ;;
      esac
    done <"$ORV_TEMPLATES/$orv__form.tpl"
  for name in "${orv__stored[@]}" "${!orv_was[@]}"; do
    old=${orv_was[$name]} new=${orv[$name]}
    [[ $old != "$new" && -z ${told[$name]} ]] || continue
    told[$name]=1 row=${name##*[!0-9]} column=$name
    what=${orv_label[$name]:-${label[$name]}}
    if [[ -z $what ]]; then
      column=${name%"$row"}
      what=${label[$column]:-$column}${row:+, row $((10#${row:-0} + 1))}
    fi
    orv__line "$what" 50
    line=$REPLY
    if [[ " ${orv__secrets[*]} " == *" $name "* ]] ||
      { [[ -z ${shown[$column]} ]] && orv__is_secret_name "$column"; }; then
      line+=': changed'
    else
      old=${entry[$column.$old]:-$old} new=${entry[$column.$new]:-$new}
      orv__line "${old:-blank}" 60
      line+=": $REPLY $1 "
      orv__line "${new:-blank}" 60
      line+=$REPLY
    fi
    orv_lines+=("$line")
  done
}

# orv_changes: to the page that confirms, as saved_change0 to saved_change11,
# each with the end of its line: "Device name: gateway-1 → gateway-2".
orv_changes() {
  local i line more
  orv__describe '→'
  more=$((${#orv_lines[@]} - 11))
  for i in {0..11}; do
    line=${orv_lines[i]}
    ((i < 11 || more < 2)) || line="and $more more"
    orv__line "$line" 210 shown
    printf 'u_saved_change%d="%s"\n' "$i" "${REPLY:+$REPLY\$L\$}"
  done
}

# orv_log_changes: the same to the system log, with who did it from where.
orv_log_changes() {
  local user=${REMOTE_USER:0:50} from=${REMOTE_ADDR:0:50}
  user=${user//[!A-Za-z0-9_.@-]/_} from=${from//[!0-9A-Fa-f.:]/_}
  orv__describe '->'
  ((!${#orv_lines[@]})) ||
    printf '%s\n' "${orv_lines[@]/%/ (${user:-somebody} at ${from:-home})}" |
    logger -t orv
  return 0
} 2>/dev/null
