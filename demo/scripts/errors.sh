#!/bin/bash
# Shows every way in which a form can fail.  Nothing is stored.
. "${BASH_SOURCE%/*}/lib.sh"

NAMES=(er_kind er_word er_number er_late)

if [[ $1 == --read ]]; then
  # Submit must work without a change.
  printf '%s\n' 'always_submit="True"' 'er_kind="none"' 'er_word="One"' \
    'er_number="5"' 'er_late="7"' 'er_item0="Cable"' 'er_count0="2"' \
    'er_item1="Plug"' 'er_count1="4"'
  exit
fi

# Errors before anything is saved.
check_kind()
{
  case ${orv[er_kind]} in
    field) orv_error er_word 'This message belongs to this field' ;;
    several)
      orv_error er_word 'The first of two messages'
      orv_error er_kind 'A list can have a message, too'
      ;;
    page) orv_msg 'This message belongs to the whole page.' ;;
    column) orv_error er_count 'This message is for the whole column' ;;
    cell) orv_error er_count 'This message is for the second row' 1 ;;
    hidden) orv_error er_late 'This field shows in the expert view only' ;;
    fatal) orv_fatal 'This page cannot go on; only Home is of use now.' ;;
    check) exit 1 ;;
    killed) kill -KILL $$ ;;
    # orv-lint: off output-format
    nonsense) echo 'this is no answer' ;;
    slow) sleep 4 ;;
  esac
}

orv_read "${NAMES[@]}"
case $1 in
  --check)
    check_kind
    orv_end
    ;;
  --write)
    case ${orv[er_kind]} in
      write) exit 1 ;;
      full) orv_msg 'This could not be stored. Is the storage full?' ;;
      *) orv_put u_saved_note 'Nothing went wrong, and nothing was stored.' ;;
    esac
    ;;
esac
