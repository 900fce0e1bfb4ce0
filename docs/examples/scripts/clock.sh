#!/bin/bash
file=${BASH_SOURCE%/*}/../state/clock

case $1 in
  --read)
    read -r server 2>/dev/null <"$file"
    printf 'server="%s"\n' "$server"
    ;;
  --write)
    while IFS= read -r line; do
      if [[ $line =~ ^new_server=\"([^\"]*)\"$ ]]; then
        printf '%s\n' "${BASH_REMATCH[1]}" >"$file.new" &&
          mv -f "$file.new" "$file" ||
          echo 'error_msg=The time server could not be stored.'
      fi
    done
    ;;
esac
