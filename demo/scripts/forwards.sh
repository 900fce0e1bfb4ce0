#!/bin/bash
# Port forwards: a table whose rows the user adds and deletes.
#
# A check box cell that was drawn once has a value ("False") for good, so a row
# whose texts were all cleared still reaches us as a row.  Such rows are
# dropped when the table is stored, and nothing of them is checked.
. "${BASH_SOURCE%/*}/lib.sh"

COLUMNS=(fw_off fw_proto fw_port fw_address fw_to fw_note)
MAX_ROWS=32

# Puts the numbers of the rows in use into `rows`.
find_rows()
{
  local i
  rows=()
  for i in {0..99}; do
    if [[ ${cfg[fw_port$i]}${cfg[fw_address$i]}${cfg[fw_to$i]}${cfg[fw_note$i]} ]]
    then
      rows+=("$i")
    fi
  done
}

is_port()
{
  [[ $1 =~ ^0*[1-9][0-9]{0,4}$ ]] && ((10#$1 <= 65535))
}

# check_row ROW: the page has checked the fields of an ordinary request; rows
# behind a gap reach us unchecked, so formats are looked at once more.
check_row()
{
  local i=$1 row=$(($1 + 1)) proto key
  if ! is_port "${cfg[fw_port$i]}"; then
    fail fw_port "Row $row: enter the port that callers use, 1 to 65535"
  fi
  if ! ip_number "${cfg[fw_address$i]}"; then
    fail fw_address "Row $row: enter the address of a device in your network"
  fi
  if [[ ${cfg[fw_to$i]} ]] && ! is_port "${cfg[fw_to$i]}"; then
    fail fw_to "Row $row: enter a port, 1 to 65535, or leave it blank"
  fi
  if ! one_of "${cfg[fw_proto$i]}" tcp udp both; then
    fail fw_proto "Row $row: choose a protocol"
  fi
  if ! plain "${cfg[fw_note$i]}"; then
    fail fw_note "Row $row: use plain letters, digits and punctuation"
  fi
  if ((failed)); then
    return
  fi
  for proto in tcp udp; do
    if one_of "${cfg[fw_proto$i]}" $proto both; then
      key=$proto.$((10#${cfg[fw_port$i]}))
      if [[ ${seen[$key]} ]]; then
        fail fw_port "Row $row: this port is forwarded in row ${seen[$key]} already"
        return
      fi
      seen[$key]=$row
    fi
  done
}

check_rows()
{
  local i
  local -A seen=()
  for i in "${rows[@]}"; do
    check_row "$i"
  done
  if ((${#rows[@]} > MAX_ROWS)); then
    fail_page "Nothing was saved yet: the device keeps $MAX_ROWS forwards."
  fi
  end_check
}

# pack: puts the rows in use under 0, 1, 2 and so on; their cells into `cells`.
pack()
{
  local row=0 i column
  cells=()
  for i in "${rows[@]}"; do
    for column in "${COLUMNS[@]}"; do
      cfg[$column$row]=${cfg[$column$i]}
      cells+=("$column$row")
    done
    tick "fw_off$row"
    row=$((row + 1))
  done
}

case $1 in
  --read)
    load forwards "${COLUMNS[@]/%/#}"
    find_rows
    pack
    show "${cells[@]}"
    ;;
  --check)
    take "${COLUMNS[@]/%/#}"
    find_rows
    check_rows
    ;;
  --write)
    take "${COLUMNS[@]/%/#}"
    find_rows
    pack
    store forwards "${cells[@]}"
    ;;
  *) exit 1 ;;
esac
