# shellcheck shell=bash
# What the scripts of a device's forms share: values from and to the page, and
# settings stored as a whole.  A script begins with
#
#   . "${BASH_SOURCE%/*}/orv.bash"
#
# `orv` holds the values at hand, `orv_was` those that were loaded, `rows` and
# `cells` what orv_rows and orv_pack found; `orv_failed` is 1 after a fault.
#
# Nothing that a file or a request holds is ever run: names are judged before
# they become a subscript or meet a pattern, values are only copied.  No command
# is started here, since each costs a millisecond.  What starts some, storing
# before all, stands in orv_store.bash and is read when it is needed.

export PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C # patterns mean bytes
umask 077
ORV_STATE=${ORV_STATE:-${BASH_SOURCE[0]%/*}/../state}
ORV_DEFAULTS=${ORV_DEFAULTS:-${BASH_SOURCE[0]%/*}/../defaults}
ORV_TEMPLATES=${ORV_TEMPLATES:-${BASH_SOURCE[0]%/*}/../templates}
declare -gA orv=() orv_was=() orv_label=()
# shellcheck disable=SC2034  # orv_store.bash reads some of these
rows=() cells=() orv__stamps=() orv__secrets=()
orv_failed=0 orv__told=0 orv__got=0 orv__page='' orv__lock=''
orv__form=${2:0:50}
printf -v orv__token '%(%s)T.%d.%d' -1 $$ $RANDOM

# orv_load FILE: the stored values, lines NAME=VALUE, or as long as nobody saved
# those of ORV_DEFAULTS; 1 if there is neither.  In a read script, which has no
# input, it confirms a change that orv_guard watches, if a page is being shown.
orv_load() {
  local line name stamp='0 0' file=$ORV_STATE/.pending
  orv__is_word "$1" || return 1
  if [[ -e $file/.armed && $REQUEST_METHOD && ! -p /dev/stdin ]]; then
    orv_lock && rm -rf -- "$file" && orv_unlock
  fi
  # What a save has committed is in .commit until it is moved to its place.
  for file in "$ORV_STATE/.commit/$1" "$ORV_STATE/$1" "$ORV_DEFAULTS/$1" ''; do
    [[ -r $file ]] && while IFS= read -r line || [[ $line ]]; do
      name=${line%%=*}
      if [[ $line == '#orv '* ]]; then
        stamp=${line#* }
      elif [[ $line == [A-Za-z]*=* && $name != *[!A-Za-z0-9_]* ]]; then
        orv[$name]=${line#*=} orv_was[$name]=${line#*=}
      fi
    done <"$file" && break
  done 2>/dev/null
  orv__stamps+=("$stamp")
  [[ $file ]]
}
orv__is_word() { # becomes the name of a file
  [[ ${#1} -le 99 && $1 == [A-Za-z0-9]* && $1 != *[!A-Za-z0-9_.-]* ]]
}

# orv_read NAME...: of the page's values, lines new_NAME="VALUE" on standard
# input, those of these names.  "port#" stands for a column's cells, rows 0 to
# 99; a table comes as a whole, so its stored cells go first.  A value that
# still holds a quotation mark is dropped, and a fault: some of it may be a name.
orv_read() {
  local - IFS=$'\n' text line name key row length
  local -A wanted=([orv_stamp]=orv_stamp) seen=()
  for name; do wanted[${name,,}]=$name; done
  for key in "${!orv[@]}"; do
    name=${key%"${key##*[!0-9]}"}
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
    [[ $key ]] || continue
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

# orv_put NAME VALUE: reports a value.  Of one that the line of 249 bytes cannot
# hold it reports the beginning, control characters as blanks, and returns 1.
orv_put() {
  [[ ${#1} -le 52 && $1 == [A-Za-z]* && $1 != *[!A-Za-z0-9_]* &&
    $1 != error_* && $1 != delete_* ]] || return 1
  orv__line "$2" $((246 - ${#1}))
  printf '%s="%s"\n' "$1" "$REPLY"
  [[ $REPLY == "$2" ]]
}
orv_show() { # NAME...: reports values at hand
  local name
  for name; do orv_put "$name" "${orv[$name]}"; done
}

orv_show_secrets() { # NAME...: to orvctl --secrets, never to a page
  [[ -z $ORV_SECRETS || $REQUEST_METHOD ]] || orv_show "$@"
}

# orv_error NAME TEXT: a message beside a field.  orv_msg TEXT: one of the page,
# the first counts.  orv_fatal TEXT: the form makes no sense.  orv_end: ends a
# check, for marked fields need a message at the top.
orv_error() {
  local name=${1:0:50}
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

# orv_stamp: of two pages the later one must not undo what the other saved.  It
# reports which state was loaded and which page this is.  After orv_read it
# refuses a page whose state was replaced since, unless by itself: its user went
# Back.  A request without a stamp comes from no page and passes.
orv_stamp() {
  local stamp known=" $orv__page "
  if ((!orv__got)); then
    orv_put orv_stamp "${orv__stamps[*]%% *} $orv__token"
  elif [[ $orv__page ]]; then
    for stamp in "${orv__stamps[@]}"; do
      [[ $known == *" ${stamp% *} "* || $known == *" ${stamp#* } "* ]] ||
        orv_msg 'This page is older than the last save. Please open it again.'
    done
  fi
}

orv_one_of() { # VALUE ALLOWED...
  local value=$1 IFS=' '
  shift
  [[ ${#value} -le 99 && $value != *' '* && " $* " == *" $value "* ]]
}
orv_tick() { # NAME...: a box not ticked or not drawn may have no value
  local name
  for name; do
    [[ ${orv[$name],,} == @(true|1) ]] && orv[$name]=True || orv[$name]=False
  done
}

# orv_rows COLUMN...: in `rows`, the numbers of a table's rows that hold
# something in one of these columns.  Name the columns of text: a list always has
# a value, and a box that was drawn once keeps "False".
orv_rows() {
  local key row used=() IFS=' '
  for key in "${!orv[@]}"; do
    row=${key##*[!0-9]}
    [[ ${orv[$key]} && $row && ${#row} -le 2 &&
      " $* " == *" ${key%"$row"} "* ]] && used[10#$row]=1
  done
  rows=("${!used[@]}")
}
orv_pack() { # COLUMN...: numbers `rows` anew, without gaps, and names `cells`
  local i name values=()
  cells=()
  for i in "${!rows[@]}"; do
    for name; do cells+=("$name$i") values+=("${orv[$name${rows[i]}]}"); done
  done
  for i in "${rows[@]}"; do
    for name; do unset "orv[$name$i]"; done
  done
  for i in "${!cells[@]}"; do orv[${cells[i]}]=${values[i]}; done
}

orv_secret() { # NAME...: blank means unchanged; stored, it leaves the page
  local name
  for name; do orv[$name]=${orv[$name]:-${orv_was[$name]}}; done
  orv__secrets+=("$@")
}

# --- what starts commands -----------------------------------------------------

orv__more() {
  # shellcheck source-path=SCRIPTDIR source=orv_store.bash
  . "${BASH_SOURCE[0]%/*}/orv_store.bash" && "$@"
}
orv_lock() { orv__more orv_lock; }
orv_store() { orv__more orv_store "$@"; }
orv_changes() { orv__more orv_changes; }
orv_log_changes() { orv__more orv_log_changes; }
orv_background() { orv__more orv_background "$@"; }
orv_after_page() { orv__more orv_after_page "$@"; }
orv_guard() { orv__more orv_guard "$@"; }
orv_guard_boot() { orv__more orv_guard_boot "$@"; }
