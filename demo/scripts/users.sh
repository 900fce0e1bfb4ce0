#!/bin/bash
# Who may use these pages: a table of names and roles.
#
# What a password becomes is kept in a file of its own, which nothing here
# reports: a random salt and the SHA-512 of salt and password.  That tool is on
# every device and keeps what was typed out of the file; where a slow hash (what
# crypt makes) is at hand, it belongs here instead.  A password belongs to a
# name, not to a row: rows move when others are deleted.  The shipped users have
# passwords that nobody knows: they were made at random and thrown away.
. "${BASH_SOURCE%/*}/lib.sh"

COLUMNS=(us_name us_role us_off)
KEYS=users.keys
USER='^[a-z][a-z0-9_]{1,19}$'

if [[ $1 == --read ]]; then
  load users
  find_rows us_name
  tick "${rows[@]/#/us_off}"
  pack "${COLUMNS[@]}"
  show "${cells[@]}"
  exit
fi

MAX_ROWS=20

# The page has checked the fields of an ordinary request; rows behind a gap
# reach us unchecked, so formats are looked at once more.
check_row()
{
  local name=${cfg[us_name$1]} row=$(($1 + 1))
  if [[ ! $name =~ $USER ]]; then
    fail us_name "Row $row: use small letters, digits and _, at most 20"
    return
  elif [[ ${seen[$name]} ]]; then
    fail us_name "Row $row: row ${seen[$name]} has this name already"
  elif [[ -z ${cfg[us_key$1]} && -z ${cfg[hash_${name}_]} ]]; then
    fail us_key "Row $row: $name is new and needs a password"
  fi
  seen[$name]=$row
  if ! one_of "${cfg[us_role$1]}" admin operator viewer; then
    fail us_role "Row $row: choose a role"
  elif [[ ${cfg[us_role$1]}/${cfg[us_off$1]} == admin/False ]]; then
    admins=$((admins + 1))
  fi
}

# hash_password PASSWORD: in REPLY, salt and hash.
hash_password()
{
  local salt hash
  read -r salt </proc/sys/kernel/random/uuid
  # The password goes by a pipe: everybody may see a command's arguments.
  read -r hash _ < <(printf '%s' "$salt$1" | sha512sum)
  REPLY=$salt:$hash
  [[ ${#hash} == 128 && -n $salt ]]
}

# write_keys: the hashes of the users in the table, and of nobody else.
write_keys()
{
  local row name key names=()
  for row in "${rows[@]}"; do
    name=${cfg[us_name$row]} key=${cfg[us_key$row]}
    if [[ ! $name =~ $USER ]] || ! plain "$key"; then
      fail_page 'The table holds characters that cannot be stored.'
      return 1
    fi
    if [[ -n $key ]]; then
      if ! hash_password "$key"; then
        fail_page 'The passwords could not be stored.'
        return 1
      fi
      cfg[hash_${name}_]=$REPLY
    fi
    names+=("hash_${name}_")
  done
  store $KEYS "${names[@]}"
}

load $KEYS
take "${COLUMNS[@]/%/#}" 'us_key#'
find_rows us_name us_key
tick "${rows[@]/#/us_off}"
case $1 in
  --check)
    admins=0
    declare -A seen=()
    for row in "${rows[@]}"; do
      check_row "$row"
    done
    if ((!failed && admins == 0)); then
      fail us_role 'One administrator must stay, or nobody could set anything'
    elif ((${#rows[@]} > MAX_ROWS)); then
      fail_page "Nothing was saved yet: the device keeps $MAX_ROWS users."
    fi
    end_check
    ;;
  --write)
    # A user without a key cannot get in; a key without a user does no harm.
    write_keys || exit
    # The page that confirms shall not carry the passwords on.
    printf 'u_us_key%d=\n' "${rows[@]}"
    pack "${COLUMNS[@]}"
    store users "${cells[@]}" && note 'Users changed'
    ;;
  *) exit 1 ;;
esac
