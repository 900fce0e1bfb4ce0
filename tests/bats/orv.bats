#!/usr/bin/env bats
# shellcheck disable=SC2016  # expanded by the scripts
# orv.bash as scripts use it: small scripts, each in a folder of its own, and
# what pages, other saves and power cuts can do to them.

bats_require_minimum_version 1.5.0

setup() {
  LIB=$BATS_TEST_DIRNAME/../../lib
  export ORV_STATE=$BATS_TEST_TMPDIR/the\ \$state
  export ORV_DEFAULTS=$BATS_TEST_TMPDIR/d ORV_TEMPLATES=$BATS_TEST_TMPDIR
  mkdir -p "$ORV_STATE" "$ORV_DEFAULTS"
  # The store on a full disk.
  printf '#!/bin/bash\nulimit -f 0\nexec %q "$@"\n' "$ORV_STORE" \
    >"$BATS_TEST_TMPDIR/full"
  chmod +x "$BATS_TEST_TMPDIR/full"
}

# script TEXT [VALUE]: runs it after loading the library, with the caller's
# input; VALUE is its $3.
script() {
  bash -c ". '$LIB/orv.bash'; $1" script.sh --task form "${2-}"
}

# saves FILE VALUE: stores name `v`.
saves() {
  script "orv[v]=\$3; orv_store $1 v" "$2" </dev/null
}

stored() { # FILE: its stored lines, without the stamp
  grep -v '^#' "$ORV_STATE/$1" | xargs
}

waits() { # CONDITION...: until the command succeeds
  for ((i = 0; i < 300; i++)); do
    if "$@"; then
      return
    fi
    sleep 0.1
  done
  false
}

limit() { # NAME
  sed -n "s/.* $1 = \(.*\);/\1/p" "$BATS_TEST_DIRNAME/../../src/orv/orv_limits.h"
}

page() { # TEXT: a script's report; lines that no page accepts go to stderr
  script "$@" >"$BATS_TEST_TMPDIR/out" 2>&1 || true
  ! grep -avP "^(?=.{0,$(limit ORV_LINE_MAX)}\$)"'[A-Za-z][A-Za-z0-9_]*=(".*"|[^"]*)$' \
    "$BATS_TEST_TMPDIR/out" >&2
  cat "$BATS_TEST_TMPDIR/out"
}

@test "the library is short and needs no command to report values" {
  (($(wc -l <"$LIB/orv.bash") < 90)) # a page that is shown reads this file
  shellcheck -x "$LIB"/orv*.bash
  run -0 script 'PATH=/nowhere; orv_load x; orv_rows a; orv_pack a; orv_stamp
    orv_show a; orv_msg m' </dev/null
  [[ $output == 'orv_stamp="0 '*$'\n''a=""'$'\n''error_msg="m"' ]]
  ORV_STORE=/nowhere run -1 script 'orv[v]=1; orv_store one v' </dev/null
  [[ $output == 'error_msg="Nothing can be stored: the program orv-store'* ]]
}

@test "only the requested values are read, each as it was typed" {
  local ran=$BATS_TEST_TMPDIR/ran long
  printf -v long '%099999d' 0
  printf '%s\n' 'new_Host_NAME="Café  a=b"' 'new_port7="7"' 'new_PORT99="x"' \
    'new_blank=" 	"' 'new_last="in the file' 'old_a="1"' new_ 'new_="' '=""' \
    'new_a="' 'new_a' 'new_port07="7"' 'new_port="1"' \
    'new_port-1="1"' 'new_other="1"' 'new_ORV="1"' 'new_a=b="1"' \
    "new_a[\$(touch $ran)]=\"1\"" "new_port0\$(touch $ran)=\"1\"" \
    "new_$long=\"1\"" "new_a $long=\"1\"" "new_long=\"$long\"" \
    "new_run=\"\$(touch $ran)\`touch $ran\`'\\" \
    "new_c=\"\$(touch $ran)\`touch $ran\`'\\\"" >"$BATS_TEST_TMPDIR/in"
  printf -v long '%0999d' 0
  SECONDS=0
  run -0 script 'orv=([port5]=5 [kept]=6 [a]=stored)
    orv_read host_Name port# blank last a c long run
    for n in "${!orv[@]}"; do printf "%s=%s\n" "$n" "${orv[$n]}"; done | sort
    echo $orv_failed' <"$BATS_TEST_TMPDIR/in"
  ((SECONDS < 5)) # each value once took a millisecond
  [[ $output == "a=stored
blank=
c=\$(touch $ran)\`touch $ran\`'\\
host_Name=Café  a=b
kept=6
long=$long
port7=7
port99=x
0" && ! -e $ran ]]
  run -0 page 'orv_read a' < <(printf 'new_a="1"\nnew_A="2"\n')
  [[ $output == 'error_msg="The request contains a name twice."' ]]
  run -0 page 'orv_read port# box#; orv_rows port' <<<"new_port$(limit ORV_STORED_ROWS_MAX)=\"1\""
  [[ $output == 'error_msg="Nothing was saved: a table keeps '*' rows, and this one has more."' ]]
  run -0 page 'orv[b]=old; orv_read a b; orv_show b' <<<'new_b="x="y"'
  [[ $output == 'error_msg="No value may hold a quotation mark."'$'\n''b="old"' ]]
  run -0 page 'orv_read c#' <<<'new_c3="x="y"'
  [[ $output == 'error_msg="No value may hold a quotation mark."' ]]
}

@test "no value and no text forges a line, is cut inside a letter or expanded" {
  local long dollars
  printf -v long '%0999d' 0
  dollars=${long//0/\$}
  run -0 page 'orv_put a "$3" || echo "cut=$?"; orv_error "a b" "$3"
    orv_error port Taken 3; orv_error port All "" ; orv_error port Odd $'\''1\n"x=y'\''
    orv_msg "$3"; orv_msg second' $'x\nerror_msg=forged\r$V:a$'
  [[ $output == 'a="x error_msg=forged $V:a$"'$'\n''cut=1
error_a_b="x error_msg=forged $$$V:a$$$"
error_port3="Taken"
error_port="All"
error_port1__x_="Odd"
error_msg="x error_msg=forged $$$V:a$$$"' ]]
  for long in "$long" "$dollars" "${long//0/é}" "${long//0/€}" "x${long//0/😀}"
  do
    run -0 page 'orv_put a "$3" || echo "cut=$?"
      orv_error b "$3"; orv_fatal "$3"' "$long"
    [[ $output == *cut=1*error_b=*error_msg=*error_fatal=yes ]]
    iconv -f UTF-8 -t UTF-16 <<<"$output" >/dev/null
  done
  run -0 page 'for n in error_a delete_a "a=b" "" 1 "a b"; do
    orv_put "$n" 1 && exit 1; done; echo "end=$orv_failed"'
  [[ $output == end=0 ]]
}

@test "rows are found and renumbered whatever their gaps" {
  run -0 page 'orv_read a# b# box#; orv_rows a b; echo "rows=${rows[*]}"
    orv_tick "${rows[@]/#/box}"; orv_pack a box; orv_show "${cells[@]}" a90' \
    < <(printf 'new_%s="%s"\n' a90 z b7 y box7 true a0 x box3 1 a08 n)
  [[ $output == 'rows=0 7 90
a0="x"
box0="False"
a1=""
box1="True"
a2="z"
box2="False"
a90=""' ]]
  run -0 script 'orv_one_of b a b &&
    ! orv_one_of "a b" a b && ! orv_one_of "*" a b'
}

@test "nothing is stored unless all of it fits" {
  saves one old && saves two old
  for bad in $'a\nb' 'a"b' 'a$b' 'a\b' 'a`b' $'a\x7f' "$(printf '%0999d' 0)"; do
    run -1 script 'orv[v]=new orv[w]=$3; orv_store one v -- two v w' "$bad"
    [[ $output == 'error_msg="Nothing was saved'* && $(stored one) == v=old ]]
  done
  run -1 script 'orv_store ../out v'
  run -1 script 'orv_error v no; orv_store one v'
  run -0 script 'orv[v]="Café '\''n'\'' #=" ; orv_store one v -- new v x'
  [[ $(<"$ORV_STATE/new") == *$'\n'"v=Café 'n' #="$'\n'x= ]]
  [[ $(stat -c %a "$ORV_STATE/new") == 600 && $(stored two) == v=old ]]
  ORV_STATE=/dev/null/x run -1 script 'orv_store one v'
  [[ $output == 'error_msg="The settings cannot be reached: Not a directory (folder /dev/null/x'* ]]
  ORV_STORE=$BATS_TEST_TMPDIR/full run -1 script 'orv_store one v'
  [[ $output == *'could not be stored: File too large (folder '* ]]
  [[ $(ls -A "$ORV_STATE") != *.new* && $(stored one) != v= ]]
}

@test "several files are one step, even if the power fails between them" {
  saves one old && saves two old
  # The power fails after the save is committed, and before that.
  mkdir "$ORV_STATE/.commit"
  printf '%s\n' '#orv 2 9 -' '#table' v=new | tee "$ORV_STATE"/.commit/{one,two}
  for read in one two; do
    run -0 page "orv_load $read; orv_show v" </dev/null
    [[ $output == 'v="new"' ]]
  done
  mkdir "$ORV_STATE/.new.1" && echo v=half >"$ORV_STATE/.new.1/two"
  script orv_guard_boot
  [[ $(stored one)$(stored two) == v=newv=new ]]
  [[ $(ls -A "$ORV_STATE") == $'.generation\n.history\n.lock\none\ntwo' ]]
}

@test "saves at the same time come one after the other" {
  saves count 0
  for _ in {1..20}; do
    script 'orv_lock; orv_load count
      orv[v]=$((orv[v] + 1)); orv_store count v' &
  done
  wait
  [[ $(stored count) == v=20 ]]
  # A daemon started by a save does not keep the lock.
  daemon=$(script 'orv_lock; sleep 60 >/dev/null & echo $!' 3>&-)
  run -0 timeout 20 bash -c ". '$LIB/orv.bash'; orv_lock"
  kill "$daemon"
}

@test "a page older than the last save is refused, its own save aside" {
  local form='orv_load one; orv_load two; orv_read v; orv_stamp; orv_end
    ((orv_failed)) || orv_store one v'
  opened() { script 'orv_load one; orv_load two; orv_stamp' </dev/null; }
  first=$(opened) second=$(opened)
  run -0 script "$form" < <(printf 'new_v="1"\nnew_%s\n' "$first")
  [[ -z $output && $(stored one) == v=1 ]]
  run -0 script "$form" < <(printf 'new_v="2"\nnew_%s\n' "$second")
  [[ $output == *older* && $(stored one) == v=1 ]]
  third=$(opened)
  run -0 script "$form" < <(printf 'new_v="3"\nnew_%s\n' "$first") # Back
  [[ -z $output && $(stored one) == v=3 ]]
  for old in "$third" 'orv_stamp="*"' 'orv_stamp="? ?"' 'orv_stamp="x"'; do
    run -0 script "$form" < <(printf 'new_v="4"\nnew_%s\n' "$old")
    [[ $output == *older* && $(stored one) == v=3 ]]
  done
  run -0 script "$form" <<<'new_v="5"' # a program that read no page
  [[ $(stored one) == v=5 ]]
}

@test "changes are reported by labels and choices, secrets only as changed" {
  printf '%s\n' 'title T' body 'field host 20' 'label Device name' 'select mode' \
    'label Mode' 'choice a Auto matic' 'choice s By hand' 'checkbox on' \
    'label Light' 'checkbox ask_pin' 'table t 1' 'field to' 'label Port' \
    'field a_pin' 'label PIN' \
    >"$ORV_TEMPLATES/form.tpl"
  printf '%s\n' host=old mode=a on=True ask_pin= to0=1 to1=2 a_pin=9 >"$ORV_STATE/form"
  run -0 script 'orv_load form; orv_read host mode on ask_pin w_psk to#
    orv_secret a_pin b_pin key; orv[a_pin]="\$6\$1234" orv[key]=1234
    orv_tick on; orv_rows to; orv_pack to
    orv_store form host mode on ask_pin w_psk a_pin b_pin key "${cells[@]}"
    orv_changes; printf "log:%s\n" "${orv_lines[@]}"' \
    < <(printf 'new_%s="%s"\n' host "it's" mode s on False \
    ask_pin True w_psk 1234 to0 3)
  [[ $output == 'u_a_pin=
u_b_pin=
u_key=
u_saved_change0="Device name: old → it'\''s$L$"
u_saved_change1="Mode: Auto matic → By hand$L$"
u_saved_change2="Light: on → off$L$"
u_saved_change3="ask_pin: off → on$L$"
u_saved_change4="Port, row 1: 1 → 3$L$"
u_saved_change5="'*' 2$L$"
u_saved_change6="PIN: '*'$L$"
u_saved_change7="key: '*'$L$"
u_saved_change8="w_psk: '*'$L$"
u_saved_change9=""'*'log:Light: on -> off'* ]]
  [[ $output != *1234* && $(<"$ORV_STATE/form") == *'a_pin=$6$1234'* ]]
  run -0 page 'for i in {0..19}; do orv[x$i]="&$i"; done
    orv_label[x0]="\$V:a\$"; orv_store x "${!orv[@]}"; orv_changes'
  [[ $output == *'$$$V:a$$$: blank → &0$L$"'*'u_saved_change11="and 9 more$L$"' ]]
}

@test "a guarded change goes back unless an act keeps it" {
  local ran=$BATS_TEST_TMPDIR/ran before
  echo v=shipped >"$ORV_DEFAULTS/net"
  shows() { [[ $(script 'orv_load net; orv_show v' </dev/null) == "v=\"$1\"" ]]; }
  guarded() {
    script "orv_one_of a a; (($1 < 9)) || orv_background() { :; }; orv_guard $1 $2
      orv[v]=new orv[w]=1; orv_store net v w" 3>&-
  }
  run -0 guarded 1
  [[ $output == 'u_saved_pending="A change by somebody waits to be kept. If '* ]]
  shows new && waits shows shipped
  guarded 900 && [[ -e $ORV_STATE/.pending/net ]]
  guarded 800 # not kept either: the state before the first change comes back
  [[ $(<"$ORV_STATE/.pending/net") != *new* ]]
  script "orv_went_back() { touch $ran.told; }
    orv_guard_boot touch $ran" </dev/null
  shows shipped && [[ -e $ran && -e $ran.told && ! -e $ORV_STATE/.pending ]]
  # Opening a page does not keep it, nor a save that fails, nor another token.
  guarded 900
  before=$(<"$ORV_STATE/.pending/.token")
  ORV_STORE=$BATS_TEST_TMPDIR/full run -1 script 'orv_guard 9 :; orv_store net v'
  REQUEST_METHOD=GET script 'orv_load net' </dev/null
  REQUEST_METHOD=GET ORV_POLICY=strict run -1 "$ORV_STORE" confirm "$before"
  run -1 "$ORV_STORE" confirm 1234
  [[ $output == 'fault Another change was made meanwhile'* ]]
  [[ $(<"$ORV_STATE/.pending/.token") == "$before" ]]
  REQUEST_METHOD=POST ORV_POLICY=strict "$ORV_STORE" confirm "$before"
  [[ ! -e $ORV_STATE/.pending ]] && script orv_guard_boot </dev/null
  [[ $(stored net) == 'v=new w=1' ]]
  # With a command, it cannot be kept before the command has run.
  guarded 1 "eval 'cat \"\$ORV_STATE/net\" >>$ran'"
  run -1 "$ORV_STORE" confirm
  [[ $output == 'fault The device does not use the change yet'* ]]
  waits grep -q new "$ran"
  waits test ! -e "$ORV_STATE/.pending"
}

@test "a background process holds neither page nor lock" {
  run -0 script 'orv_lock; touches() { touch "$1"; }
    orv_background bash -c "echo \$\$ >\"\$1\"; exec sleep 60" "" "$3"
    orv_after_page 0 touches "$3.done"' "$ORV_STATE/pid" </dev/null 3>&-
  run -0 timeout 20 bash -c ". '$LIB/orv.bash'; orv_lock"
  waits test -e "$ORV_STATE/pid.done" -a -s "$ORV_STATE/pid"
  kill "$(<"$ORV_STATE/pid")" # it is still running
}
