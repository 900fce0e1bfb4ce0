#!/bin/sh
# Lights: a file of our own, which the lights' daemon reads.
FILE=/var/lib/lights/lights.conf

case $1 in
  --read)
    led_mode=on
    led_level=100
    if [ -r "$FILE" ]; then
      while IFS='=' read -r name value; do
        case $name in
          led_mode) led_mode=$value ;;
          led_level) led_level=$value ;;
        esac
      done <"$FILE"
    fi
    printf '%s="%s"\n' led_mode "$led_mode" led_level "$led_level"
    exit 0
    ;;
esac

led_mode='' led_level=''
while IFS='=' read -r name value; do
  value=${value#\"}
  value=${value%\"}
  case $name in
    new_led_mode) led_mode=$value ;;
    new_led_level) led_level=$value ;;
  esac
done

case $led_mode in
  on | night | off) ;;
  *)
    echo 'error_led_mode=Choose one of the list'
    exit 0
    ;;
esac
case $led_level in
  '' | *[!0-9]*)
    echo 'error_led_level=Enter a number from 1 to 100'
    exit 0
    ;;
esac

if [ "$1" = --write ]; then
  umask 077
  if ! printf 'led_mode=%s\nled_level=%s\n' "$led_mode" "$led_level" \
    >"$FILE.new" || ! mv -f "$FILE.new" "$FILE"; then
    echo 'error_msg=The settings could not be stored.'
  fi
fi 2>/dev/null
