# shellcheck shell=bash
# What the example scripts share.  `cfg` holds the form's values by name.

export PATH=/usr/sbin:/usr/bin:/sbin:/bin # a web server may hand on none
export LC_ALL=C
umask 077
STATE=${BASH_SOURCE[0]%/*}/../state
# A page reads back lines of 249 bytes, the name and both quotes included.
LONGEST=190
declare -A cfg=()

# matches VALUE PATTERN...: whether the value is one of these.
matches()
{
  local value=$1 pattern
  shift
  for pattern; do
    # shellcheck disable=SC2053  # a pattern
    if [[ $value == $pattern ]]; then
      return 0
    fi
  done
  return 1
}

# load FILE PATTERN...: the stored values of these names, lines NAME=VALUE.
load()
{
  local line file=$STATE/$1
  shift
  if [[ ! -r $file ]]; then
    return
  fi
  while IFS= read -r line; do
    if matches "${line%%=*}" "$@"; then
      cfg[${line%%=*}]=${line#*=}
    fi
  done <"$file"
}

# take PATTERN...: the page's values of these names, lines new_NAME="VALUE".  A
# request can hold any name, so a line of another shape, or of a name that is
# not ours, is passed over.
take()
{
  local line name value
  while IFS= read -r line; do
    if [[ $line =~ ^new_([a-z0-9_]+)=\"([^\"]*)\"$ ]]; then
      name=${BASH_REMATCH[1]} value=${BASH_REMATCH[2]}
      if ! matches "$name" "$@"; then
        continue
      fi
      if [[ ${#value} -gt $LONGEST || $value == *[[:cntrl:]]* ]]; then
        fail msg 'A value is too long, or no line of text.'
      elif [[ $value == *[!\ ]* ]]; then
        cfg[$name]=$value
      else
        cfg[$name]='' # nothing but blanks
      fi
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

# fail NAME TEXT: a message for NAME.  What prints one saves nothing.
fail()
{
  printf 'error_%s=%s\n' "$1" "$2"
}

# store FILE NAME...: replaces the file as a whole, so that a reader, or a lost
# power supply, finds the old one or the new one.
store()
{
  local name text='' file=$STATE/$1
  shift
  for name; do
    text+=$name=${cfg[$name]}$'\n'
  done
  if ! { printf '%s' "$text" >"$file.new" && mv -fT "$file.new" "$file"; } \
    2>/dev/null; then
    fail msg 'The settings could not be stored. Is the storage full?'
  fi
}
