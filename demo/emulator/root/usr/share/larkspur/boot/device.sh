# shellcheck shell=sh
# Shared by the device's actions and boot scripts.  Stored values cannot be
# trusted: every reader checks them.

# load FILE: loads the values in force of these settings.
load()
{
  settings=$(orv-store load "$1") || exit
  settings="
$settings
"
}

# value NAME: sets REPLY to the loaded value.
value()
{
  REPLY=${settings#*"
$1="}
  if [ "$REPLY" = "$settings" ]; then
    REPLY=''
  fi
  REPLY=${REPLY%%"
"*}
}

# is_on NAME
is_on()
{
  value "$1"
  [ "$REPLY" = True ]
}

# is_host TEXT: a name or an address that no program takes for an option.
is_host()
{
  case $1 in
    '' | [!A-Za-z0-9]* | *[!A-Za-z0-9.:-]*) return 1 ;;
  esac
  [ "${#1}" -le 253 ]
}

# end PROGRAM: ends the process whose id is in the program's file, and waits
# until it is gone.
end()
{
  tries=0
  while start-stop-daemon -K -q -p "/run/$1.pid" 2>/dev/null; do
    tries=$((tries + 1))
    [ "$tries" -lt 30 ] || return
    usleep 100000
  done
  rm -f "/run/$1.pid"
}

# start_log [SERVER]: logs to memory, where logread(1) finds it, and to that
# server as well.
start_log()
{
  syslogd -C128 ${1:+-L -R "$1"}
}
