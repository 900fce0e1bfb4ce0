# shellcheck shell=bash
# What check and write scripts need: the page's values, and messages about them.

# Associative arrays of orv.bash, and patterns.
# shellcheck disable=SC2004,SC2034,SC2053,SC2153,SC2154,SC2015

orv__input=() orv__taken='' orv__told=0 orv__beyond=''
orv__secrets=() orv__columns=()

# --- values ---------------------------------------------------------------------

# orv_read NAME...: reads the page's values of these names.  "port#" stands for
# a column's cells; a table comes as a whole, so its stored cells are dropped
# first.  A value that still contains a quotation mark is dropped, with a
# message: a name may end inside it.
orv_read() {
  local name row cells=' ' wanted=' orv_stamp '
  [[ $orv__taken ]] || orv__take
  for name; do
    case $name in
      *#) orv__columns+=("${name%#}") cells+="${name%#} " ;;
      *) wanted+="$name " ;;
    esac
  done
  for name in "${!orv[@]}"; do
    orv_was[$name]=${orv[$name]} row=${name##*[!0-9]}
    [[ $cells != *" ${name%"$row"} "* ]] || unset "orv[$name]"
  done
  if [[ $orv__taken == served ]]; then
    orv__read_served "$@"
  else
    orv__read_taken "$@"
  fi
  orv__page=${orv[orv_stamp]} orv__got=1
  unset 'orv[orv_stamp]'
}

orv__read_taken() {
  local line name row got=' '
  wanted=${wanted,,} cells=${cells,,}
  for line in "${orv__input[@]}"; do
    name=${line%%=*} name=${name#new_}
    if [[ $wanted != *" $name "* ]]; then
      row=${name##*[!0-9]}
      [[ $cells == *" ${name%"$row"} "* ]] || continue
      [[ $row == 0 || $row == [1-9]* ]] || continue
      if ((${#row} > ${#orv__rows} || row >= orv__rows)); then
        [[ $line == *'=""' ]] || orv__beyond+=" ${name%"$row"} "
        continue
      fi
    fi
    [[ $got != *" $name "* ]] || orv_msg 'The request contains a name twice.'
    line=${line#*=\"} got+="$name " orv[$name]=${line%\"}
  done
  [[ $* != *[A-Z]* ]] || orv__spell "$@"
  [[ ${orv[*]} != *\"* ]] || orv__drop_quotes
}

# The same from the orv-store that serves this script and has checked them.
orv__read_served() {
  local line
  orv__tell "read orv_stamp $*"$'\n' || return
  for line in "${orv__answer[@]:3}"; do orv[${line%%=*}]=${line#*=}; done
  orv__beyond+=${orv__answer[1]}
  [[ ${orv__answer[2]} == ' ' ]] ||
    orv_msg 'No value may hold a quotation mark.'
}

# Reads the page's lines, once, where no orv-store has read them.  Only the
# names that a script asks for are used; orv-store checks how much a page can
# have.
orv__take() {
  local - IFS=$'\n' text=''
  orv__taken=here
  [[ -t 0 ]] || IFS='' read -r -N 9000000 text
  set -f
  # shellcheck disable=SC2206  # split into lines only
  orv__input=($text)
  [[ ${#text} -le 60000 && $text != *=\"[$' \t']* &&
    "${orv__input[*]%%=*}" != *[A-Z]* ]] || orv__clean "$text"
}

orv_secret() { # NAME...: blank means unchanged; stored, it leaves the page
  local name
  for name; do orv[$name]=${orv[$name]:-${orv_was[$name]}}; done
  orv__secrets+=("$@")
}

orv_one_of() { # VALUE ALLOWED...
  local value=$1 IFS=' '
  shift
  [[ ${#value} -le 99 && $value != *' '* && " $* " == *" $value "* ]]
}

# orv_number NAME...: turns numbers such as 0900, 0x10, -5, +3 into plain
# decimals; 1 when a value is no number, blank or too long for bash, and leaves
# it as it is.
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

# --- messages -------------------------------------------------------------------

# Sets REPLY to TEXT as one line of at most BYTES, cut between characters.  With
# SHOWN, "$" is escaped for pages, where it would insert values.
orv__line() { # TEXT BYTES [SHOWN]
  REPLY=${1:0:$2}
  [[ ${#1} -gt $2 && $REPLY == *[$'\x80'-$'\xff'] ]] &&
    REPLY=${REPLY%[$'\xc0'-$'\xff']*}
  REPLY=${REPLY//[[:cntrl:]]/ }
  [[ $3 && $REPLY == *\$* ]] || return 0
  orv__line "$REPLY" $(($2 / 3)) && REPLY=${REPLY//\$/\$\$\$}
}
orv__cut() { # NAME VALUE: what one line holds of it
  orv__line "$2" $((orv__bytes - ${#1}))
  printf '%s="%s"\n' "$1" "$REPLY"
  [[ $REPLY == "$2" ]]
}

# orv_error NAME TEXT [ROW]: a message beside a field, or for a table's column;
# with a row number, counted from 0, only that cell is marked.  orv_msg TEXT: a
# message at the top of the page, where the first one counts.  orv_fatal TEXT:
# an error page instead of the form.  orv_end: ends a check, since marked fields
# need a message at the top.
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

# Refuses a page whose values have been replaced since, unless by this page: its
# user went Back.  A request without a stamp comes from no page and passes.
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
