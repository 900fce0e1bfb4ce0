#!/bin/bash
# Every way in which a form can fail, to be looked at.  Nothing is stored.
. "${BASH_SOURCE%/*}/lib.sh"

NAMES=(er_kind er_word er_number er_late)

if [[ $1 == --read ]]; then
  # Nothing need be changed here before something goes wrong.
  printf '%s\n' 'always_submit="True"' 'er_kind="none"' 'er_word="One"' \
    'er_number="5"' 'er_late="7"' 'er_item0="Cable"' 'er_count0="2"' \
    'er_item1="Plug"' 'er_count1="4"'
  exit
fi

# What goes wrong before anything is saved.
check_kind()
{
  case ${cfg[er_kind]} in
    field) fail er_word 'This message belongs to this field' ;;
    several)
      fail er_word 'The first of two messages'
      fail er_kind 'A list can have a message, too'
      ;;
    page) fail_page 'This message belongs to the whole page.' ;;
    column)
      fail er_count 'Row 2: a message of a table stands under it and says where'
      ;;
    hidden) fail er_late 'This field shows in the expert view only' ;;
    fatal)
      fail_page 'This page cannot go on; only Home is of use now.'
      fail fatal yes
      ;;
    check) exit 1 ;;
    killed) kill -KILL $$ ;;
    # orv-lint: off output-format
    nonsense) echo 'this is no answer' ;;
    slow) sleep 4 ;;
  esac
}

case $1 in
  --check)
    take "${NAMES[@]}"
    check_kind
    end_check
    ;;
  --write)
    take "${NAMES[@]}"
    case ${cfg[er_kind]} in
      write) exit 1 ;;
      full) fail_page 'This could not be stored. Is the storage full?' ;;
    esac
    echo 'saved_note="Nothing went wrong, and nothing was stored."'
    ;;
  *) exit 1 ;;
esac
