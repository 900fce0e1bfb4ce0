#!/bin/bash
. "${BASH_SOURCE%/*}/orv.bash"

# apply: makes the device use the stored settings.  It runs after the page has
# been sent, and again if the old address comes back.
apply()
{
  orv_load guard
  # ip address replace "${orv[address]}" dev eth0
  logger -t guard "Address: ${orv[address]}"
}

[[ $1 != --write ]] || orv_lock
orv_load guard
if [[ $1 == --read ]]; then
  orv_stamp
  orv_show address
  orv_put wait_address ''
  orv_put wait_confirm ''
  exit
fi

orv_read address
orv_stamp
orv_end
if [[ $1 == --write ]]; then
  orv_guard 120 apply
  if orv_store guard address; then
    new=${orv[address]%/*}
    orv_put u_after_save "Now open http://$new/ and keep the change there."
    orv_put wait_address "$new" # browsers with scripts open it by themselves
    orv_put wait_confirm 120    # and count down
  fi
fi
