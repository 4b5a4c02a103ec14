#!/usr/bin/env bash
# Compares the symbols a shared library exports with the expected lists.
# Usage: check_exports.sh LIBRARY LIST_DIR
# Each list holds one symbol per line, as `nm -D --defined-only` prints it;
# text after '#' is a comment. Anything else exported is an error: standard
# library instantiations and unique objects included.
set -euo pipefail
lib=$1
dir=$2

expected=$(cat "$dir"/*.txt | sed 's/#.*//' | awk 'NF { print $1 }' | sort -u)
exported=$(nm -D --defined-only "$lib" | awk '{ print $NF }' |
  grep -vE '^_(init|fini)$' | sort -u)

missing=$(comm -23 <(printf '%s\n' "$expected") <(printf '%s\n' "$exported"))
extra=$(comm -13 <(printf '%s\n' "$expected") <(printf '%s\n' "$exported"))

status=0
if [ -n "$missing" ]; then
  echo "not exported:"
  printf '  %s\n' $missing
  status=1
fi
if [ -n "$extra" ]; then
  echo "exported but not listed:"
  printf '  %s\n' $extra
  status=1
fi
[ $status -eq 0 ] && echo "$(printf '%s\n' "$expected" | grep -c .) symbols exported as listed"
exit $status
