#!/bin/bash
# Who may use these pages: a table of names and roles.
#
# The password hashes are in a separate file and never reported to a page: a
# random salt and the SHA-512 of salt and password.  Every device has that tool,
# and it keeps the password itself out of the file; if a slow hash (as from
# crypt) is available, use that instead.  A password belongs to a name, not to a
# row: rows move when others are deleted.  The shipped users have passwords that
# nobody knows: random ones that were discarded.  A backup (orvctl dump
# --secrets) contains the hashes, and restores them.
. "${BASH_SOURCE%/*}/lib.sh"

COLUMNS=(us_name us_role us_off)
KEYS=users.keys
USER='^[a-z][a-z0-9_]{1,19}$'

orv_load users
orv_load $KEYS
if [[ $1 == --read ]]; then
  orv_stamp
  orv_rows us_name
  orv_tick "${rows[@]/#/us_off}"
  orv_pack "${COLUMNS[@]}"
  orv_show "${cells[@]}"
  for row in "${!rows[@]}"; do
    orv_show_hash "hash_${orv[us_name$row]}_password" "us_password$row"
  done
  exit
fi

MAX_ROWS=20
HASH='[0-9a-f-]{36}:[0-9a-f]{128}' # the result of hash_password

# The page has checked the fields of an ordinary request; rows after a gap
# arrive unchecked, so formats are checked again.
check_row()
{
  local name=${orv[us_name$1]} password=${orv[us_password$1]}
  if [[ ! $name =~ $USER ]]; then
    orv_error us_name 'Use small letters, digits and _, at most 20' "$1"
    return
  fi
  orv_take_hash "hash_${name}_password" "$HASH" "us_password$1"
  if [[ ${seen[$name]} ]]; then
    orv_error us_name "Row ${seen[$name]} has this name already" "$1"
  elif [[ -z $password && -z ${orv[hash_${name}_password]} ]]; then
    orv_error us_password "$name is new and needs a password" "$1"
  elif [[ $password && ! $password =~ ^[[:print:]]{10,80}$ ]]; then
    orv_error us_password 'Use 10 to 80 letters, digits and signs' "$1"
  fi
  seen[$name]=$(($1 + 1))
  if ! orv_one_of "${orv[us_role$1]}" admin operator viewer; then
    orv_error us_role 'Choose a role' "$1"
  elif [[ ${orv[us_role$1]}/${orv[us_off$1]} == admin/False ]]; then
    admins=$((admins + 1))
  fi
}

# hash_password PASSWORD: sets REPLY to salt and hash.
hash_password()
{
  local salt hash
  read -r salt </proc/sys/kernel/random/uuid
  # Through a pipe, since everybody can see a command's arguments.
  read -r hash _ < <(printf '%s' "$salt$1" | sha512sum)
  REPLY=$salt:$hash
  [[ ${#hash} == 128 && -n $salt ]]
}

# hash_all: sets `keys` to the names of the hashes of the users in the table.
hash_all()
{
  local row name
  for row in "${rows[@]}"; do
    name=hash_${orv[us_name$row]}_password
    keys+=("$name")
    # shellcheck disable=SC2034  # read by orv_changes
    orv_label[$name]="Password of ${orv[us_name$row]}"
    if [[ ${orv[us_password$row]} ]]; then
      hash_password "${orv[us_password$row]}" ||
        orv_msg 'The passwords could not be stored.'
      orv[$name]=$REPLY
      orv_secret "us_password$row"
    fi
  done
}

orv_read "${COLUMNS[@]/%/#}" 'us_password#'
orv_stamp
orv_rows us_name us_password
orv_tick "${rows[@]/#/us_off}"
admins=0 keys=()
declare -A seen=()
for row in "${rows[@]}"; do
  check_row "$row"
done
if ((!orv_failed && admins == 0)); then
  orv_error us_role 'One administrator must stay, or nobody can change anything'
elif ((${#rows[@]} > MAX_ROWS)); then
  orv_msg "Nothing was saved yet: the device keeps $MAX_ROWS users."
fi
orv_end
if [[ $1 == --write ]] && ((!orv_failed)); then
  hash_all
  orv_pack "${COLUMNS[@]}"
  orv_store $KEYS "${keys[@]}" -- users "${cells[@]}" && saved 'Users changed'
fi
