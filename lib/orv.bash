# shellcheck shell=bash
# What the scripts of a device's forms share: values from and to the page, and
# settings stored as a whole.  A script begins with
#
#   . "${BASH_SOURCE%/*}/orv.bash"
#
# `orv` holds the values at hand, `orv_was` those that were loaded, `rows` and
# `cells` what orv_rows and orv_pack found; `orv_failed` is 1 after a fault.
#
# `orv_label` may hold names' texts for the user, instead of the template's.
#
# Nothing that a file or a request holds is ever run: names are judged before
# they become a subscript or meet a pattern, values are only copied.  No command
# is started here, since each costs a millisecond, nor is more read than a shown
# page needs: the rest is in orv_store.bash beside this file.

export PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C # patterns mean bytes
umask 077
ORV_STATE=${ORV_STATE:-${BASH_SOURCE[0]%/*}/../state}
ORV_DEFAULTS=${ORV_DEFAULTS:-${BASH_SOURCE[0]%/*}/../defaults}
declare -gA orv=() orv_was=() orv_label=()
# shellcheck disable=SC2034  # orv_store.bash reads some of these
rows=() cells=() orv__stamps=() orv__secrets=() orv__beyond=''
orv_failed=0 orv__told=0 orv__got=0 orv__page='' orv__lock=''
orv__form=${2:0:50} orv__token=${EPOCHSECONDS:-0}.$$.$RANDOM # this run's own

# orv_load FILE: the stored values, lines NAME=VALUE, or as long as nobody saved
# those of ORV_DEFAULTS; 1 if there is neither.  In a read script, which has no
# input, it confirms a change that orv_guard watches, if a page is being shown.
orv_load() {
  local lines line stamp='0 0' file=$ORV_STATE/.pending
  orv__is_word "$1" || return 1
  if [[ -e $file/.armed && $REQUEST_METHOD && ! -p /dev/stdin ]]; then
    # As one step, and again: another save may have come before the lock.
    orv_lock && [[ -e $file/.armed ]] &&
      mv -T -- "$file" "$ORV_STATE/.new.$orv__token" && orv__finish
    orv_unlock
  fi
  # What a save has committed is in .commit until it is moved to its place.
  for file in "$ORV_STATE/.commit/$1" "$ORV_STATE/$1" "$ORV_DEFAULTS/$1" ''; do
    [[ -r $file ]] && mapfile -t lines <"$file" && break
  done 2>/dev/null
  for line in "${lines[@]}"; do
    if [[ $line == [A-Za-z]*=* ]]; then
      orv[${line%%=*}]=${line#*=}
    elif [[ $line == '#orv '* ]]; then
      stamp=${line#* }
    fi
  done
  orv__stamps+=("$stamp")
  [[ $file ]]
}
orv__is_word() { # becomes the name of a file
  [[ ${#1} -le 99 && $1 == [A-Za-z0-9]* && $1 != *[!A-Za-z0-9_.-]* ]]
}

# orv_put NAME VALUE: reports a value.  Of one that the line of 249 bytes cannot
# hold it reports the beginning, control characters as blanks, and returns 1.
orv_put() {
  [[ ${#1} -le 52 && $1 == [A-Za-z]* && $1 != *[!A-Za-z0-9_]* &&
    $1 != error_* && $1 != delete_* ]] || return 1
  REPLY=$2
  if ((${#1} + ${#2} > 246)) || [[ $2 == *[[:cntrl:]]* ]]; then
    orv__line "$2" $((246 - ${#1}))
  fi
  printf '%s="%s"\n' "$1" "$REPLY"
  [[ $REPLY == "$2" ]]
}

orv_show() { # NAME...: reports values at hand; plain ones go out as one piece
  local name value report=''
  for name; do
    value=${orv[$name]}
    if ((${#name} + ${#value} < 247)) && [[ $value != *[!\ -~]* ]]; then
      report+="$name=\"$value\""$'\n'
    else
      orv_put "$name" "$value"
    fi
  done
  printf %s "$report"
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
# something in one of these columns.  Name the columns of text: a list always
# has a value, and a box that was drawn once keeps "False".
orv_rows() {
  local key row used=() IFS=' '
  for key in "${!orv[@]}"; do
    row=${key##*[!0-9]}
    [[ ${orv[$key]} && $row && ${#row} -le 2 &&
      " $* " == *" ${key%"$row"} "* ]] && used[10#$row]=1
  done
  rows=("${!used[@]}")
  for key in ${orv__beyond:+"$@"}; do
    [[ $orv__beyond != *" $key "* ]] ||
      orv_msg 'Nothing was saved: a table keeps 100 rows, and this one has more.'
  done
}
orv_pack() { # COLUMN...: numbers `rows` anew, without gaps, and names `cells`
  local i name values=()
  cells=()
  for i in "${!rows[@]}"; do
    cells+=("${@/%/$i}")
    for name; do values+=("${orv[$name${rows[i]}]}"); done
  done
  [[ ${rows[*]} != "${!rows[*]}" ]] || return 0
  for i in "${rows[@]}"; do
    for name; do unset "orv[$name$i]"; done
  done
  for i in "${!cells[@]}"; do orv[${cells[i]}]=${values[i]}; done
}

# --- what few pages need: orv_store.bash --------------------------------------

orv__more() {
  # shellcheck source-path=SCRIPTDIR source=orv_store.bash
  . "${BASH_SOURCE[0]%/*}/orv_store.bash" && "$@"
}
orv__line() { orv__more orv__line "$@"; }
orv_read() { orv__more orv_read "$@"; }
orv_error() { orv__more orv_error "$@"; }
orv_msg() { orv__more orv_msg "$@"; }
orv_end() { orv__more orv_end; }
orv_fatal() { orv__more orv_fatal "$@"; }
orv_secret() { orv__more orv_secret "$@"; }
orv_take_hash() { orv__more orv_take_hash "$@"; }
orv_lock() { orv__more orv_lock; }
orv_store() { orv__more orv_store "$@"; }
orv_changes() { orv__more orv_changes; }
orv_log_changes() { orv__more orv_log_changes; }
orv_background() { orv__more orv_background "$@"; }
orv_after_page() { orv__more orv_after_page "$@"; }
orv_guard() { orv__more orv_guard "$@"; }
orv_guard_boot() { orv__more orv_guard_boot "$@"; }
