#!/bin/bash
# The password for the web server.  It is hashed, and the action `login`
# installs the hash as root; neither appears in the process list.
. "${BASH_SOURCE%/*}/orv.bash"

LOGIN=${ORV_LOGIN:-/etc/larkspur/login} # lines USER:HASH
HASH='[$]6[$][A-Za-z0-9./]{1,16}[$][A-Za-z0-9./]{86}'

# find_user: sets `user` and `in_use`, the user who is logged in and the hash;
# without a login, as at a terminal, the first user.
find_user()
{
  local name hash lines=()
  user='' in_use=''
  [[ ! -r $LOGIN ]] || mapfile -t lines <"$LOGIN"
  while IFS=: read -r name hash; do
    if [[ $name == "$REMOTE_USER" ||
      (-z $user && (-z $REQUEST_METHOD || -z $REMOTE_USER)) ]]; then
      user=$name in_use=$hash
    fi
  done < <(printf '%s\n' "${lines[@]}")
}

# hash_line [SALT]: hashes the line on standard input with an available program.
hash_line()
{
  openssl passwd -6 ${1:+-salt "$1"} -stdin ||
    busybox mkpasswd -m sha512 -P 0 ${1:+-S "$1"} ||
    mkpasswd -m sha-512 -P 0 ${1:+-S "$1"}
} 2>/dev/null

# hash_of PASSWORD [SALT]: sets REPLY to the hash.
hash_of()
{
  IFS= read -r REPLY < <(printf '%s\n' "$1" | hash_line "$2")
  [[ $REPLY =~ ^$HASH$ ]]
}

is_in_use() # PASSWORD
{
  local salt=${in_use#\$6\$}
  [[ $in_use =~ ^$HASH$ ]] && hash_of "$1" "${salt%%\$*}" &&
    [[ $REPLY == "$in_use" ]]
}

judge()
{
  local typed=${orv[new_password]}
  if [[ ! $typed =~ ^[\ -~]{10,80}$ || $typed == *[\"\$\\\`]* ]]; then
    orv_error new_password 'Enter 10 to 80 letters, digits and signs'
  elif [[ ${typed,,} == *"${user,,}"* ]]; then
    orv_error new_password "It must not contain the name $user"
  elif [[ ${orv[again_password]} != "$typed" ]]; then
    orv_error again_password 'The two passwords differ'
  fi
  # At a terminal the old password is not needed: it may have been forgotten.
  if [[ $REQUEST_METHOD ]] && ! is_in_use "${orv[old_password]}"; then
    orv_error old_password 'This is not the password in use'
  fi
}

[[ $1 != --write ]] || orv_lock
orv_load login
find_user
if [[ $1 == --read ]]; then
  orv_stamp
  orv_put login_user "$user"
  orv[login_password]=$in_use
  orv_show_hash login_password new_password # to a backup, never to a page
  exit
fi

orv_read old_password new_password again_password
orv_stamp
[[ $user ]] || orv_msg 'This device has no login.'
orv_take_hash login_password "$HASH" new_password || judge
orv_end
if [[ $1 == --write ]] && ((!orv_failed)); then
  if [[ ${orv[new_password]} ]]; then
    hash_of "${orv[new_password]}" || orv_msg 'The password could not be stored.'
    orv[login_password]=$REPLY
  fi
  # shellcheck disable=SC2034  # read by orv_store
  orv[login_user]=$user orv_label[login_password]="Password of $user"
  orv_secret login_password old_password new_password again_password
  orv_store login login_user login_password && orv_log_changes && orv_changes &&
    orv_act login 30 && orv_put u_after_save 'Your browser will now ask for it.'
fi
