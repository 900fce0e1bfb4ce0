# shellcheck shell=bash
# What the scripts of the demo device share.
#
# Settings are files of NAME=VALUE lines in the state folder that stands beside
# the scripts' folder.  They are read with `read` and never sourced: nothing
# that a file or a request holds is ever run.  A file is replaced as a whole
# (written beside, then renamed), so a reader sees the old or the new one and a
# lost power supply leaves one of them.  A file that nobody has saved yet is
# read from the folder of what the device was shipped with.
#
# `cfg` holds the values of the form at hand, `last_row` the highest row number
# of its tables, `failed` is 1 once a fault has been told to the user,
# `page_message` is what the whole page was told.
#
# A command costs a process, so the shell does all that a shown page needs.  The
# shell reads a script as it goes: what stands behind the end of the read part,
# here and in every script, costs a shown page nothing.

# A web server may start its programs without any PATH.
export PATH=/usr/sbin:/usr/bin:/sbin:/bin
# Patterns such as [a-z] mean bytes; what we store is nobody else's to read.
export LC_ALL=C
umask 077

STATE=${BASH_SOURCE[0]%/*}/../state
SHIPPED=${BASH_SOURCE[0]%/*}/../defaults
declare -A cfg=()
last_row=0

# The sockets of the device's case, and what is printed beside them.
# shellcheck disable=SC2034  # read by the scripts of the ports
PORTS=(wan lan1 lan2 lan3)
# shellcheck disable=SC2034
declare -A PORT_LABEL=([wan]=WAN [lan1]='LAN 1' [lan2]='LAN 2' [lan3]='LAN 3')

# keep NAME VALUE: sets cfg[NAME] where NAME is that of a value: of a field, or
# of a table's column and a row from 0 to 99.
keep()
{
  local row
  if [[ $1 != [a-z]* || $1 == *[!a-z0-9_]* ]]; then
    return
  fi
  cfg[$1]=$2
  row=${1##*[!0-9]}
  if [[ $row && ${#row} -le 2 ]] && ((10#$row > last_row)); then
    last_row=$((10#$row))
  fi
}

# load FILE: the stored values.
load()
{
  local line file=$STATE/$1
  if [[ ! -r $file ]]; then
    file=$SHIPPED/$1
  fi
  if [[ ! -r $file ]]; then
    return 1
  fi
  while IFS= read -r line || [[ -n $line ]]; do
    if [[ $line == *=* ]]; then
      keep "${line%%=*}" "${line#*=}"
    fi
  done <"$file"
}

# show NAME...: reports values to the page.
show()
{
  local name
  for name; do
    printf '%s="%s"\n' "$name" "${cfg[$name]}"
  done
}

# tick NAME...: a check box that the page did not draw, or that was not ticked,
# may have no value; afterwards it is True or False.
tick()
{
  local name
  for name; do
    case ${cfg[$name],,} in
      true | 1) cfg[$name]=True ;;
      *) cfg[$name]=False ;;
    esac
  done
}

# one_of VALUE ALLOWED...
one_of()
{
  local value=$1
  shift
  [[ $value != *' '* && " $* " == *" $value "* ]]
}

# find_rows COLUMN...: in `rows`, the numbers of a table's rows in use, which
# are those that hold something in one of these columns.  Name the columns of
# text alone: a list always has a value, and a check box that was drawn once has
# one ("False") for good, so a row whose texts were all cleared still reaches
# us.  Such rows are dropped, and nothing of them is checked.
find_rows()
{
  local row column texts
  rows=()
  for ((row = 0; row <= last_row; row++)); do
    texts=''
    for column; do
      texts+=${cfg[$column$row]}
    done
    if [[ -n $texts ]]; then
      rows+=("$row")
    fi
  done
}

# pack COLUMN...: numbers the rows in use 0, 1, 2 and so on, in the order of
# `rows`; puts the names of their cells into `cells`.
pack()
{
  local i row column values=()
  cells=()
  for i in "${!rows[@]}"; do
    row=${rows[i]}
    for column; do
      cells+=("$column$i")
      values+=("${cfg[$column$row]}")
    done
  done
  for i in "${!cells[@]}"; do
    cfg[${cells[i]}]=${values[i]}
  done
}

if [[ $1 == --read ]]; then
  return
fi

# --- what check and write scripts need beyond that ---------------------------

# A line of script output ends at 249 bytes, name and quotes included.
MAX_VALUE=180
# The log's lines: when it has grown to the first, the second are left.
LOG_MAX=200
LOG_KEPT=100

failed=0
page_message=''

# take KNOWN...: the values of the request, lines new_NAME="VALUE" on standard
# input, over what cfg holds already.  "port#" stands for all cells of a table's
# column.  Other names are dropped: a request can hold any.  The quote stands
# right behind the first "=": a field whose own name holds a "=" must not pass
# for another one, whose value would then go unchecked.
take()
{
  local line name row
  # A table comes as a whole, so no stored cell of it stays.
  for name; do
    for ((row = 0; row <= last_row; row++)); do
      if [[ $name == *\# ]]; then
        unset "cfg[${name%\#}$row]"
      fi
    done
  done
  while IFS= read -r line || [[ -n $line ]]; do
    name=${line#new_}
    name=${name%%=*}
    if [[ $line != "new_$name=\""*\" ]]; then
      continue
    fi
    line=${line#*=\"}
    row=${name##*[!0-9]}
    if [[ " $* " == *" $name "* ||
      ( " $* " == *" ${name%"$row"}# "* && $row =~ ^(0|[1-9][0-9]?)$ ) ]]; then
      line=${line%\"}
      # Blank text passes a check with nullok as it was typed.
      [[ $line == *[!\ $'\t']* ]] || line=''
      keep "$name" "$line"
    fi
  done
}

# fail NAME TEXT: a message beside the field NAME.
fail()
{
  failed=1
  printf 'error_%s=%s\n' "$1" "$2"
}

# fail_page TEXT: the message of the whole page; the first one counts.
fail_page()
{
  if [[ -z $page_message ]]; then
    page_message=$1
    fail msg "$1"
  fi
}

# The end of a check script: fields with a fault need a message at the top.
end_check()
{
  if ((failed)); then
    fail_page 'Nothing was saved yet. Please look at the marked fields.'
  fi
}

# plain VALUE: fits on one line of a file and of a page's input.
plain()
{
  [[ ${#1} -le $MAX_VALUE && $1 != *[!\ -~]* && $1 != *[\"\$\\\`]* ]]
}

# replace FILE TEXT
replace()
{
  local file=$STATE/$1 new=$STATE/.new.$1.$$
  if { printf '%s' "$2" >"$new" && mv -fT -- "$new" "$file"; } 2>/dev/null
  then
    return 0
  fi
  rm -f -- "$new" 2>/dev/null
  fail_page 'The settings could not be stored. Is the storage full?'
  return 1
}

# store FILE NAME...: replaces FILE.  The checks have passed when we get here;
# a value that no line can hold is refused all the same.
store()
{
  local file=$1 text='' name
  shift
  for name; do
    if ! plain "${cfg[$name]}"; then
      fail_page 'The settings hold characters that cannot be stored.'
      return 1
    fi
    text+=$name=${cfg[$name]}$'\n'
  done
  replace "$file" "$text"
}

# note TEXT: one line more in the device's log.  It never makes a page fail.
note()
{
  local lines=() kept when from=${REMOTE_ADDR//[!0-9a-fA-F.:]/}
  printf -v when '%(%Y-%m-%d %H:%M:%S)T' -1
  printf 'event=%s %s\n' "$when" "$1${from:+ (from $from)}" >>"$STATE/log"
  mapfile -t lines <"$STATE/log"
  if ((${#lines[@]} >= LOG_MAX)); then
    printf -v kept '%s\n' "${lines[@]: -LOG_KEPT}"
    replace log "$kept"
  fi
  return 0
} 2>/dev/null

is_port()
{
  [[ $1 =~ ^0*[1-9][0-9]{0,4}$ ]] && ((10#$1 <= 65535))
}

# ip_number ADDRESS: the IPv4 address as one number, in REPLY.
ip_number()
{
  local byte='([0-9]|[1-9][0-9]|1[0-9][0-9]|2[0-4][0-9]|25[0-5])'
  if [[ ! $1 =~ ^$byte\.$byte\.$byte\.$byte$ ]]; then
    return 1
  fi
  REPLY=$((BASH_REMATCH[1] << 24 | BASH_REMATCH[2] << 16 |
    BASH_REMATCH[3] << 8 | BASH_REMATCH[4]))
}

# check_network NAME: judges the field NAME, an address with the size of its
# network, and sets the numbers `own`, `network` and `broadcast`.
check_network()
{
  local value=${cfg[$1]} bits
  bits=${value#*/}
  if [[ -z $value ]]; then
    fail "$1" 'Enter the address, for example 192.168.1.20/24'
  elif ! ip_number "${value%%/*}"; then
    fail "$1" 'This is no address. Enter one such as 192.168.1.20/24'
  elif [[ $value != */* ]]; then
    fail "$1" 'Add the size of the network, for example /24'
  elif ! one_of "$bits" {1..30}; then
    fail "$1" 'The number after the / must be 1 to 30, usually 24'
  else
    own=$REPLY
    network=$((own & 0xffffffff << 32 - bits & 0xffffffff))
    broadcast=$((network | 0xffffffff >> bits))
    if ((own < 1 << 24 || own >> 24 == 127 || own >= 224 << 24)); then
      fail "$1" 'No device can have this address. Enter another one'
    elif ((own == network || own == broadcast)); then
      fail "$1" 'The first and the last address of a network are reserved'
    else
      return 0
    fi
  fi
  return 1
}

# in_network ADDRESS: whether it is one for a device of that network.
in_network()
{
  ip_number "$1" && ((REPLY > network && REPLY < broadcast))
}
