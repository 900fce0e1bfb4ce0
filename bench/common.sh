# shellcheck shell=bash disable=SC2034
# Shared by the benchmarks.  Sourcing it takes --report-only (exit status 0
# whatever was measured) from the arguments, builds the release executable with
# a relative data folder and changes to a scratch folder, removed at the end,
# with data/, a copy of the device to measure.

BENCH=$(dirname -- "$(readlink -f -- "${BASH_SOURCE[0]}")")
BUILD=$BENCH/../build/bench
ORV=$BUILD/larkspur/orv
BARE=$BUILD/bench_bare
report_only=0 failed=0
if [[ ${1-} == --report-only ]]; then
  report_only=1
  shift
fi

die()
{
  printf '%s: %s\n' "${0##*/}" "$*" >&2
  exit 1
}

scratch=$(mktemp -d) || exit 1
trap 'rm -rf "$scratch"' EXIT
cp -r "$BENCH/device" "$scratch/data"
cd "$scratch" || exit 1

{
  cmake -S "$BENCH" -B "$BUILD" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DORV_DATA_DIR=data -DORV_SYSTEM_TYPE_FILE=data/system_type
  cmake --build "$BUILD" --target orv orv-store bench_bare bench_runner bench_peak
} >log 2>&1 || die "the build failed: $(<log)"

# request BODY FORM: sets REQUEST to the environment of a request that posts the
# file, or opens the form when BODY is /dev/null.
request()
{
  REQUEST=(PATH=/usr/bin:/bin SCRIPT_NAME=/cgi-bin/orv SERVER_NAME=localhost
    GATEWAY_INTERFACE=CGI/1.1 SERVER_PROTOCOL=HTTP/1.1)
  if [[ $1 == /dev/null ]]; then
    REQUEST+=(REQUEST_METHOD=GET "QUERY_STRING=form=$2")
  else
    REQUEST+=(REQUEST_METHOD=POST QUERY_STRING=
      CONTENT_TYPE=application/x-www-form-urlencoded
      "CONTENT_LENGTH=$(stat -c %s "$1")")
  fi
}

# page BODY FORM EXPECTED: prints the page, which must contain the text.
page()
{
  request "$1" "$2"
  if ! env -i "${REQUEST[@]}" "$ORV" <"$1" >page.html ||
    ! grep -qF -- "$3" page.html; then
    die "no page of $2 with \"$3\": $(head -c 2000 page.html)"
  fi
  cat page.html
}

# grow KIND N: makes a form KIND_N with N things of a kind, and a variable
# `first`.  Its scripts cost next to nothing whatever its size.
grow()
{
  local kind=$1 form=$1_$2 item='' output=''
  case $kind in
    fields) item='field f&\nlabel Field &' output='f&="value &"' ;;
    rows) output='a&="value &"\nb&="value &"' ;;
    choices) item='choice c& Choice &' ;;
    entries) output='select_list&="c& Choice &"' ;;
    variables) output='v&="value &"' ;;
  esac
  {
    printf '%s\n' "title $form" "read_script show.sh data/$form" \
      'check_script drain.sh' 'write_script drain.sh' 'navbar_script drain.sh' \
      body "error \$E\$" 'field first'
    case $kind in
      rows) printf '%s\n' 'table t 2' 'field a' 'field b' ;;
      choices) echo 'select list' ;;
      entries) echo 'iselect list' ;;
    esac
    seq 0 $(($2 - 1)) | sed "s/.*/$item/"
  } >"data/templates/$form.tpl"
  {
    printf 'first="1"\nlist="c%d"\n' $(($2 / 2))
    seq 0 $(($2 - 1)) | sed "s/.*/$output/"
  } >"data/$form"
}

# subject LABEL BODY FORM PROGRAM [ARGUMENT]...: adds a program, run with the
# environment and the input of the request, to those that `measure` times.
SUBJECTS=()
subject()
{
  request "$2" "$3"
  SUBJECTS+=(-- "$1" "$2" "${REQUEST[@]}" "${@:4}")
}

# compare NAME BODY FORM [LINE INPUT]...: adds the request as NAME.page, and
# only the scripts that it starts as NAME.scripts.
compare()
{
  subject "$1.page" "$2" "$3" "$ORV"
  subject "$1.scripts" "$2" "$3" "$BARE" "${@:4}"
}

# measure ROUNDS: sets MEDIAN, MIN and CPU to the microseconds of each program
# added.
declare -A MEDIAN MIN CPU
measure()
{
  local label median min cpu
  "$BUILD/bench_runner" "$1" "${SUBJECTS[@]}" >times.txt || die 'no measurement'
  while read -r label median min cpu; do
    MEDIAN[$label]=$median MIN[$label]=$min CPU[$label]=$cpu
  done <times.txt
  read -r load _ </proc/loadavg
}

# ratio A B: sets REPLY to A / B, as 1.234.
ratio()
{
  printf -v REPLY '%d.%03d' $(($1 / $2)) $(($1 % $2 * 1000 / $2))
}

# verdict MEASURED TARGET: sets REPLY to "ok" or "MISSED".  Both are integers,
# or both have three decimals.
verdict()
{
  REPLY=ok
  if ((10#${1/./} > 10#${2/./})); then
    REPLY=MISSED failed=1
  fi
}

finish()
{
  exit $((failed && !report_only))
}
