# shellcheck shell=bash
# The rows of a table.  `rows` are the numbers of the used ones, `cells` the
# names of their values.
# What orv.bash sets (`orv` is associative), and a pattern.
# shellcheck disable=SC2004,SC2053,SC2154
rows=() cells=()

# orv_rows COLUMN...: sets `rows` to the numbers of the rows with a value in one
# of these columns.  Name text columns: a list always has a value, and a box
# that was drawn once keeps "False".
orv_rows() {
  local key row used=() digits=$((orv__rows - 1)) IFS='|'
  local column="@($*)"
  IFS=' '
  for key in "${!orv[@]}"; do
    [[ $key == $column+([0-9]) && ${orv[$key]} ]] || continue
    row=${key##*[!0-9]}
    ((${#row} > ${#digits} || 10#$row >= orv__rows)) || used[10#$row]=1
  done
  rows=("${!used[@]}")
  for key in ${orv__beyond:+"$@"}; do
    [[ $orv__beyond != *" $key "* ]] ||
      orv_msg "Nothing was saved: a table keeps $orv__rows rows, and this one has more."
  done
}

# orv_pack COLUMN...: renumbers `rows` without gaps, and sets `cells`.
orv_pack() {
  local i name values=()
  cells=()
  for i in "${!rows[@]}"; do cells+=("${@/%/$i}"); done
  [[ ${rows[*]} != "${!rows[*]}" ]] || return 0
  for i in "${rows[@]}"; do
    for name; do values+=("${orv[$name$i]}"); done
  done
  for i in "${rows[@]}"; do
    for name; do unset "orv[$name$i]"; done
  done
  for i in "${!cells[@]}"; do orv[${cells[i]}]=${values[i]}; done
}
