#!/usr/bin/env bash
# One VLAN, named by the sub-item.
. "${BASH_SOURCE%/*}/orv.bash"

readonly -a ALL=(office guests phones)

list()
{
  local i=0 name
  for name in "${ALL[@]}"; do
    orv_put "select_vlan$i" "$name VLAN of the $name"
    ((++i))
  done
}

known()
{
  local name
  for name in "${ALL[@]}"; do
    [[ $name == "$1" ]] && return 0
  done
  return 1
}

show()
{
  orv_stamp
  orv_tick vlan_on
  orv_show vlan_id vlan_note vlan_on
}

save()
{
  local task=$1 which=$2
  orv_read vlan_id vlan_note vlan_on
  orv_stamp
  orv_tick vlan_on
  orv_number vlan_id
  if ((!orv_failed)) && [[ ${orv[vlan_id]} == 1 && ${orv[vlan_on]} == True ]]; then
    orv_error vlan_id '1 is the untagged one'
  fi
  orv_end
  if [[ $task == --write ]]; then
    orv_store "vlan.$which" vlan_id vlan_note vlan_on && orv_changes
  fi
}

main()
{
  local task=$1 which=$2
  case $task in
    --list)
      list
      return
      ;;
    --write) orv_lock ;;
  esac
  if ! known "$which"; then
    orv_fatal 'There is no such VLAN.'
    return
  fi
  orv_load "vlan.$which"
  case $task in
    --read) show ;;
    *) save "$task" "$which" ;;
  esac
}

main "$@"
