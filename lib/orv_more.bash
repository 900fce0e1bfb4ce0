# shellcheck shell=bash
# What scripts seldom need, or only when something is wrong.

# Associative arrays of orv.bash.
# shellcheck disable=SC1091,SC2004,SC2034,SC2153,SC2154
[[ $orv__program ]] || . "${BASH_SOURCE[0]%/*}/orv_store.bash"

# --- loading in special cases -------------------------------------------------

# orv__find FILE: for orv__load, whose `lines`, `stamp` and `cut` it sets: finds
# the stored file during a save, one of an older library, or reports a faulty
# one.
orv__find() {
  local folder file found='' above
  for folder in "$ORV_STATE" "$ORV_DEFAULTS"; do
    above=$folder # one without permission is not a missing one
    until [[ -e $above || $above != */* ]]; do above=${above%/*}; done
    [[ -x ${above:-/} ]] || orv__unreadable "$folder" || return
  done
  file=$ORV_DEFAULTS/$1
  [[ ! -e $file || -r $file ]] || orv__unreadable "$file" || return
  # A transaction's files count for those who take part, never for a request;
  # what a save has committed is in .commit until it is moved to its place.
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

# Values of another version of the form could have another meaning; those of an
# older one have the same where the maker ships no program that migrates them.
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

# A save came in between two files: all are loaded once more.
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
  orv__unusable 'The settings keep changing. Please try again.'
}

# --- unusual values of a page -------------------------------------------------

# orv__clean TEXT: puts names in lower case and drops lines that are too long or
# have another shape.
orv__clean() {
  local i name value
  if ((${#1} > 60000)); then
    orv__ask input - "$orv__form" < <(printf %s "$1")
    orv__input=("${orv__answer[@]:2}")
    orv__input=("${orv__input[@]/#/new_}")
    orv__input=("${orv__input[@]/=/=\"}")
    orv__input=("${orv__input[@]/%/\"}")
  fi
  for i in "${!orv__input[@]}"; do
    name=${orv__input[i]%%=*} value=${orv__input[i]#*=\"} value=${value%\"}
    [[ $value == *[!$' \t']* ]] || value='' # it passed the checks as it was typed
    orv__input[i]=${name,,}=\"$value\"
  done
}

orv__spell() { # NAME...: names as the script writes them
  local name key
  for name; do
    name=${name%#}
    for key in "${!orv[@]}"; do
      [[ $key != "$name"* && $key == "${name,,}"*([0-9]) ]] || continue
      orv[$name${key:${#name}}]=${orv[$key]}
      unset "orv[$key]"
    done
  done
}
orv__drop_quotes() { # of orv_read, whose `wanted` says what is no cell
  local name
  for name in "${!orv[@]}"; do
    [[ ${orv[$name]} == *\"* ]] || continue
    unset "orv[$name]"
    [[ ! ${orv_was[$name]+there} || $wanted != *" $name "* ]] ||
      orv[$name]=${orv_was[$name]}
  done
  orv_msg 'No value may hold a quotation mark.'
}

# --- backups --------------------------------------------------------------------

# Never true in a request: orv removes ORV_SECRETS, and a web server sets
# REQUEST_METHOD.
orv__is_backup() {
  [[ $ORV_SECRETS && -z $REQUEST_METHOD ]]
}
orv_show_secrets() { # NAME...: to orvctl --secrets, never to a page
  orv__is_backup || return 0
  orv_show "$@"
}

# orv_show_hash NAME [FIELD]: shows orvctl dump --secrets the stored hash of a
# secret that is typed in FIELD (default: NAME).  It has a name of its own,
# which no field checks; a hash that is too long would be cut, and is listed as
# missing.
orv_show_hash() {
  orv__is_backup && ((${#1} <= 45 && ${#1} + ${#orv[$1]} < 240)) || return 0
  orv_put "stored_$1" "${orv[$1]}"
  orv_put "${2:-$1}" ''
}

# orv_take_hash NAME PATTERN [FIELD]: when orvctl apply puts back a hash and
# nothing was typed in FIELD (default: NAME), takes it as it was stored: all of
# it must match the extended regular expression, since no check of a field has
# seen it.
orv_take_hash() {
  local hash=''
  if [[ $orv__taken == served ]]; then
    orv__tell "read stored_$1"$'\n' && hash=${orv__answer[3]#*=}
  else
    for hash in "${orv__input[@]}" '="'; do
      [[ ${hash,,} != "new_stored_${1,,}="* ]] || break
    done
    hash=${hash#*=\"} hash=${hash%\"}
  fi
  orv__is_backup && [[ $hash && -z ${orv[${3:-$1}]} ]] || return 1
  if [[ ! $hash =~ ^($2)$ ]]; then
    orv_msg 'This device cannot use a password as the backup has it stored.'
    return 1
  fi
  orv[$1]=$hash
  orv_secret "$1"
}

# --- history, resets and actions ----------------------------------------------

# orv_reset [FILE...]: resets the settings of these files, or all, to the
# defaults.
orv_reset() {
  orv_unlock # it takes the lock by itself
  orv__ask reset "$@" </dev/null
}

# orv_act NAME [SECONDS]: requests what needs more rights than scripts have: the
# device's program actions/NAME, which its service larkspur-acts runs.  With
# SECONDS, waits for its end, and its output is in orv_acted.  A fault becomes
# the page's message.
orv_act() {
  orv_acted=()
  orv__ask act "$1" ${2:+--wait "$2"} </dev/null || return
  orv_acted=("${orv__answer[@]:1}")
  orv_acted=("${orv_acted[@]#line }")
}

# orv_history LINES: shows the last saves on a page, the newest first: when, who
# and which form, then what changed, as history0 to history<LINES-1>, each with
# the end of its line.
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

# --- background commands ------------------------------------------------------

# orv_background COMMAND...: runs a command that neither holds up the page nor
# ends with the script.  Within a transaction it runs when that has been
# committed.
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

# --- guarded changes ----------------------------------------------------------

# orv_guard SECONDS [COMMAND...]: the next orv_store saves what it replaces, and
# puts it back unless somebody keeps the change within that time, by a Submit of
# the form `confirm` or by "orvctl confirm".  COMMAND makes the device use the
# settings: it runs a second after the save, before the change can be kept, and
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
  # While its output is read here, no later change's command starts.
  exec 3< <(exec "$orv__program" watch "$1" --hold)
  read -r REPLY <&3 && [[ $REPLY == ok ]] && orv__went_back "${@:3}" 3<&-
  exec 3<&-
}
# The script can define orv_went_back to write a log of its own.
orv__went_back() { # [COMMAND...]
  ! declare -F orv_went_back >/dev/null || orv_went_back
  "$@"
}

# orv_guard_boot [COMMAND...]: for a boot script, before the settings are used.
# Puts back what nobody kept (then COMMAND runs) and completes an interrupted
# save.
orv_guard_boot() {
  "$orv__program" boot >/dev/null 2>&1 && orv__went_back "$@"
  return 0
}
