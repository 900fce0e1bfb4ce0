# shellcheck shell=bash
# What the scripts of the demo device share.
#
# Settings are files of NAME=VALUE lines in the state folder that stands beside
# the scripts' folder.  They are read with `read` and never sourced: nothing
# that a file or a request holds is ever run.  A file is replaced as a whole
# (written beside, then renamed), so a reader sees the old or the new one and a
# lost power supply leaves one of them.
#
# `cfg` holds the values of the form at hand, `failed` is 1 once a fault has
# been told to the user, `page_message` is what the whole page was told.
# Commands cost a process each; everything but the renaming is done by the shell
# itself.

# A web server may start its programs without any PATH.
export PATH=/usr/sbin:/usr/bin:/sbin:/bin
# Patterns such as [a-z] mean bytes; what we store is nobody else's to read.
export LC_ALL=C
umask 077

STATE=${BASH_SOURCE[0]%/*}/../state
# A line of script output ends at 249 bytes, name and quotes included.
MAX_VALUE=180

declare -A cfg=()
failed=0
page_message=''

# The sockets of the device's case, and what is printed beside them.
# shellcheck disable=SC2034  # read by the scripts of the ports
PORTS=(wan lan1 lan2 lan3)
# shellcheck disable=SC2034
declare -A PORT_LABEL=([wan]=WAN [lan1]='LAN 1' [lan2]='LAN 2' [lan3]='LAN 3')

# keep NAME VALUE KNOWN...: sets cfg[NAME] if NAME is known.  "port#" stands for
# the cells port0 to port99 of a table column.  Other names are dropped: a
# request can hold any.
keep()
{
  local name=$1 value=$2 row column
  shift 2
  if [[ -z $name || $name == *[!a-z0-9_]* ]]; then
    return 0
  fi
  row=${name##*[!0-9]}
  column=${name%"$row"}#
  if [[ " $* " == *" $name "* ||
    ( " $* " == *" $column "* && $row =~ ^(0|[1-9][0-9]?)$ ) ]]; then
    cfg[$name]=$value
  fi
}

# load FILE KNOWN...: the stored values.
load()
{
  local line file=$STATE/$1
  shift
  if [[ ! -r $file ]]; then
    return 1
  fi
  while IFS= read -r line || [[ -n $line ]]; do
    if [[ $line == *=* ]]; then
      keep "${line%%=*}" "${line#*=}" "$@"
    fi
  done <"$file"
}

# take KNOWN...: the values of the request, lines new_NAME="VALUE" on standard
# input, over what cfg holds already.
take()
{
  local line
  while IFS= read -r line || [[ -n $line ]]; do
    if [[ $line == new_*=\"*\" ]]; then
      line=${line#new_}
      line=${line%\"}
      keep "${line%%=*}" "${line#*=\"}" "$@"
    fi
  done
}

# show NAME...: reports values to the page.
show()
{
  local name
  for name; do
    printf '%s="%s"\n' "$name" "${cfg[$name]}"
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

# store FILE NAME...: replaces FILE.  The checks have passed when we get here;
# a value that no line can hold is refused all the same.
store()
{
  local file=$STATE/$1 new=$STATE/.new.$1.$$ text='' name
  shift
  for name; do
    if ! plain "${cfg[$name]}"; then
      fail_page 'The settings hold characters that cannot be stored.'
      return 1
    fi
    text+=$name=${cfg[$name]}$'\n'
  done
  if { printf '%s' "$text" >"$new" && mv -fT -- "$new" "$file"; } 2>/dev/null
  then
    return 0
  fi
  rm -f -- "$new" 2>/dev/null
  fail_page 'The settings could not be stored. Is the storage full?'
  return 1
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
