#!/usr/bin/env bash
# The pinned-keys generator takes the good data file and refuses broken copies
# of it, naming the broken line:
#   check-pinned-keys-generator.sh CMAKE GENERATOR DATA_FILE
set -euo pipefail
cmake=$1 generator=$2 good=$3
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

generate() { "$cmake" -DKEYS_FILE="$1" -DOUTPUT="$tmp/out.cpp" -P "$generator" >"$tmp/log" 2>&1; }
generate "$good" || { cat "$tmp/log"; echo "FAIL: the good file was refused"; exit 1; }

# broken NAME LINE SED-COMMAND: the good file with LINE edited; must fail there.
broken() {
  local file="$tmp/$1.txt" line=$2
  sed "$line$3" "$good" >"$file"
  ! cmp -s "$good" "$file" || { echo "FAIL: $1: the edit changed nothing"; exit 1; }
  if generate "$file"; then echo "FAIL: $1: accepted"; exit 1; fi
  grep -qF "$file:$line:" "$tmp/log" || { cat "$tmp/log"; echo "FAIL: $1: no fault named on line $line"; exit 1; }
  echo "ok: $1 refused on line $line"
}
at() { grep -n -m1 "$1" "$good" | cut -d: -f1; }

broken upper-case "$(at '^key rsa2048')" 's/ 0a / 0A /'
broken bad-reference "$(at '^ .*master\[')" 's/master\[[0-9]*\]/master[48]/'
broken forward-reference "$(at '^list single')" 's/$/ four[0]/'
