# shellcheck shell=bash disable=SC2034,SC2053,SC2015,SC1090
# What a form's script needs to show a page: larkspur-script(7).  It starts no
# program; the other files beside it are read when they are needed.  Nothing in
# a file or a request is ever executed: names are checked before they become a
# subscript or meet a pattern.
export PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C; umask 077 # patterns mean bytes
export ORV_STATE=${ORV_STATE:-${BASH_SOURCE[0]%/*}/../state}
export ORV_DEFAULTS=${ORV_DEFAULTS:-${BASH_SOURCE[0]%/*}/../defaults}
declare -gA orv=() orv_was=() orv_label=() orv__stamps=()
orv__task=$1 orv__form=${2:0:50} orv__subitem=$3 orv__token=${EPOCHSECONDS:-0}.$$.$RANDOM
orv_failed=0 orv__files=() orv__got=0 orv__program='' orv__rows=100 orv__bytes=246 # orv_limits.h
# orv_load FILE...: loads the stored values, lines NAME=VALUE, and missing ones
# from ORV_DEFAULTS; 1 if there are neither.  All files come from the same save.
orv_load() {
  local file missing=0
  [[ ${orv__files[*]} ]] || orv__look
  for file; do orv__load "$file" || missing=1; done
  orv__files+=("$@")
  ((${#orv__files[@]} == 1)) || orv__look || orv__reload
  return $missing
}
orv__look() { # whether nothing was saved since the first look
  local look=''
  read -r look <"$ORV_STATE/.generation"
  [[ ! -e $ORV_STATE/.commit ]] || look+=c
  [[ ${orv__seen=$look} == "$look" ]]
} 2>/dev/null
orv__load() {
  local file=$ORV_STATE/$1 line lines=() shipped=() cut='' stamp='0 -'
  [[ ${#1} -le 99 && $1 == [A-Za-z0-9]* && $1 != *[!A-Za-z0-9_.-]* ]] || return
  [[ ! -f $file || ! -r $file ]] || mapfile -t lines <"$file"
  [[ ! -r $ORV_DEFAULTS/$1 ]] || mapfile -t shipped <"$ORV_DEFAULTS/$1"
  if [[ $ORV_TRANSACTION || -L $file || -e $ORV_STATE/.commit || -e $file &&
    (${lines[0]} != '#orv 2 '+([0-9])' '* || ${lines[2]} != "${shipped[0]}" &&
    ${lines[2]}${shipped[0]} == *'#version '*) || ! -x $ORV_STATE ||
    ! -x $ORV_DEFAULTS || -e $ORV_DEFAULTS/$1 && ! -r $ORV_DEFAULTS/$1 ]]; then
    orv__find "$1" || return
  elif [[ -e $file ]]; then
    stamp=${lines[0]:7} cut=${lines[1]:7} # a stored table is complete:
    cut=${cut/#\*/+([!=])} cut="@(${cut// /|})+([0-9])=*" # no row comes back
  fi
  orv__stamps[$1]=$stamp
  for line in "${shipped[@]}"; do
    [[ $line != [A-Za-z]*=* || $line == $cut ]] || orv[${line%%=*}]=${line#*=}
  done
  for line in "${lines[@]}"; do
    [[ $line != [A-Za-z]*=* ]] || orv[${line%%=*}]=${line#*=}
  done
  [[ ${lines[*]}${shipped[*]} ]]
}
# orv_put NAME VALUE: reports a value; 1 when a line cannot hold all of it.
orv_put() {
  [[ ${#1} -le 52 && $1 == [A-Za-z]* && $1 != *[!A-Za-z0-9_]* &&
    $1 != error_* && $1 != delete_* ]] || return
  ((${#1} + ${#2} <= orv__bytes)) && [[ $2 != *[[:cntrl:]]* ]] || { orv__cut "$@"; return; }
  printf '%s="%s"\n' "$1" "$2"
}
orv_show() { # NAME...: reports current values, plain ones in one write
  local name report=''
  for name; do
    case ${#orv[$name]}:${orv[$name]} in
      [0-9][0-9][0-9]* | *[[:cntrl:]]*) orv_put "$name" "${orv[$name]}" ;;
      *) report+="$name=\"${orv[$name]}\""$'\n' ;;
    esac
  done
  printf %s "$report"
}
orv_tick() { # NAME...: a box that is not ticked or not drawn can have no value
  for REPLY; do
    [[ ${orv[$REPLY],,} == @(true|1) ]] && orv[$REPLY]=True || orv[$REPLY]=False
  done
}
# orv_stamp: keeps an older page from undoing what another page has saved.  It
# reports the newest save that was loaded, and which page this is.
orv_stamp() {
  local stamp newest=0
  ((!orv__got)) || { orv__judge_stamp && return; }
  for stamp in "${orv__stamps[@]}"; do
    ((newest >= 10#${stamp% *})) || newest=$((10#${stamp% *}))
  done
  orv_put orv_stamp "$newest $orv__token"
}
orv__more() { . "${BASH_SOURCE%/*}/orv_$1.bash" && "${FUNCNAME[1]}" "${@:2}"; }
printf -v REPLY 'orv_%s "$@"; }\n' {rows,pack}'() { orv__more table' \
  {read,end,error,msg,fatal,secret,number,one_of,_line,_cut,_judge_stamp}'() { orv__more input' \
  {lock,unlock,store,{,log_}changes,_ask,_tell}'() { orv__more store' \
  {reset,{show,take}_hash,show_secrets,history}'() { orv__more more' \
  {act,background,after_page,guard{,_boot},_{find,reload,watch,clean,spell,drop_quotes}}'() { orv__more more'
eval "$REPLY" # of these names only; each reads its file when it is called
