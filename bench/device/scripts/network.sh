#!/bin/bash
# The settings of the measured form, with shell builtins only, so that the
# scripts are as fast as scripts can be.
STATE=${BASH_SOURCE%/*}/../state/network

case $1 in
  --read)
    while IFS= read -r line; do
      printf '%s="%s"\n' "${line%%=*}" "${line#*=}"
    done <"$STATE"
    ;;
  --check)
    declare -A new=()
    while IFS='=' read -r name value; do
      value=${value%\"}
      new[${name#new_}]=${value#\"}
    done
    if [[ ${new[mode]} == static && -z ${new[address]} ]]; then
      echo 'error_address=Enter the address'
    fi
    ;;
  --write)
    while IFS='=' read -r name value; do
      value=${value%\"}
      printf '%s=%s\n' "${name#new_}" "${value#\"}"
    done >"$STATE"
    ;;
  *) exit 1 ;;
esac
