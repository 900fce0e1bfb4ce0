# shellcheck shell=bash
# How a script stores settings.  orv-store(8) does all the writing: it reads the
# page's values, locks, and replaces files as one step.

# Associative arrays of orv.bash.
# shellcheck disable=SC1091,SC2004,SC2034,SC2153,SC2154
export ORV_TEMPLATES=${ORV_TEMPLATES:-${BASH_SOURCE[0]%/*}/../templates}
export ORV_MIGRATE=${ORV_MIGRATE:-${BASH_SOURCE[0]%/*}/../migrate}
export ORV_ACTIONS=${ORV_ACTIONS:-${BASH_SOURCE[0]%/*}/../actions}
orv__program=${ORV_STORE:-${BASH_SOURCE[0]%/*}/orv-store} # or where PATH says
[[ $ORV_STORE || -x $orv__program ]] || orv__program='orv-store'
orv_lines=() orv__lock='' orv__server='' orv__guard=() orv__saved=()
declare -F orv__take >/dev/null || . "${BASH_SOURCE[0]%/*}/orv_input.bash"

# orv__ask COMMAND...: the answer of orv-store, in `orv__answer`; a fault
# becomes the page's message.
orv__ask() {
  local text
  text=$(exec "$orv__program" "$@" 2>/dev/null)
  orv__take_answer "$text"
}
orv__take_answer() { # TEXT
  local - IFS=$'\n' text=$1
  set -f
  # shellcheck disable=SC2206  # split into lines only
  orv__answer=($text)
  [[ ${orv__answer[0]} != ok ]] || return 0
  text=${orv__answer[0]#fault }
  orv_msg "${text:-Nothing can be stored: the program orv-store does not run.}"
  return 1
}

# One orv-store serves a script that saves: it has read the page's values, holds
# the lock and stores.
orv__serve() { # takes standard input, and locks
  local program=("$orv__program" serve "$BASHPID" "$orv__form")
  [[ -z $orv__subitem ]] || program+=("$orv__subitem")
  exec {orv__from}< <(exec "${program[@]}")
  orv__hear || return
  # shellcheck disable=SC2086  # words
  set -- ${orv__answer[1]}
  orv__home=$BASHPID orv__server=$1 orv__holder=$(($1 * $3)) orv__lock=$(($1 * $3))
  exec {orv__to}>"/proc/$1/fd/$2" || ! orv_msg 'Nothing can be stored without /proc.'
} 2>/dev/null
orv__is_served() { # by one that has not ended, which could be read
  [[ $orv__server && $orv__home == "$BASHPID" ]] && ! read -rt 0 -u "$orv__from"
} 2>/dev/null
orv__tell() { # TEXT: `orv__answer` is what it comes to
  trap '' PIPE # one that was killed just now is a message, not the script's end
  printf %s "$1" >&"$orv__to"
  trap - PIPE
  orv__hear
} 2>/dev/null
orv__hear() {
  local length='' text=''
  [[ $LC_ALL == C ]] || local LC_ALL=C # bytes
  read -r length <&"$orv__from"
  IFS= read -r -N "${length:-0}" text <&"$orv__from"
  orv__take_answer "$text"
}

# orv_lock: keeps other saves waiting until the script ends.  What another save
# may have changed has to be checked again after it.
orv_lock() {
  [[ -z $orv__lock ]] || return 0
  if orv__is_served; then
    orv__tell $'lock\n' && orv__lock=$orv__holder
  elif [[ $orv__taken || -t 0 ]]; then
    orv__serve </dev/null
  else
    orv__taken=served
    orv__serve
  fi
}
orv_unlock() { # what holds the lock is a process of its own
  if orv__is_served; then
    orv__tell $'unlock\n'
  else
    ((orv__lock < 2)) || kill "$orv__lock" 2>/dev/null
  fi
  orv__lock=''
}

# orv_store FILE NAME... [-- FILE NAME...]: replaces these files by the script's
# values, as one step; does nothing after a fault.
orv_store() {
  local name file='' line order values='' owner=${orv__page##* }
  [[ $LC_ALL == C ]] || local LC_ALL=C # lengths are bytes
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
    case $name:$file in
      --:*) file='' ;;
      *:) file=$name order+="> ${file//[[:cntrl:]]/ }"$'\n' ;;
      *) order+=$name=${orv[$name]}$'\n' values+=${orv[$name]} ;;
    esac
  done
  [[ $values != *[[:cntrl:]]* ]] ||
    orv_msg 'Nothing was saved: no value may contain one of " $ \ `'
  ((!orv_failed)) || return 1
  if orv__is_served; then
    orv__tell "store ${#order}"$'\n'"$order"
  else
    orv__ask store "$orv__lock" "$orv__form" ${orv__subitem:+"$orv__subitem"} \
      < <(printf %s "$order")
  fi || return 1
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

# orv_changes: shows what changed on the confirmation page, as saved_change0 to
# saved_change11, each with the end of its line: "Device name: a → b".
orv_changes() {
  local i report='' more=$((${#orv__saved[@]} - 11))
  local lines=("${orv__saved[@]:0:12}")
  ((more < 2)) || lines[11]="and $more more\$L\$"
  for i in {0..11}; do report+="u_saved_change$i=\"${lines[i]}\""$'\n'; done
  printf %s "$report"
}

# orv_log_changes: writes the same to the system log, with who did it from
# where; in a transaction, when it is committed.
orv_log_changes() {
  local IFS=$'\n'
  ((!${#orv_lines[@]})) || "$orv__program" log <<<"${orv_lines[*]}"
  return 0
} 2>/dev/null
