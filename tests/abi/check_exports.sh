#!/usr/bin/env bash
# Compares the functions a shared library exports with the expected lists.
# Usage: check_exports.sh LIBRARY LIST_DIR
# Each list holds one symbol per line, as `nm -D --defined-only` prints it;
# text after '#' is a comment. Instantiations of the C++ standard library's
# templates (weak symbols in namespace std) are not ours and are ignored.
set -euo pipefail
lib=$1
dir=$2

expected=$(cat "$dir"/*.txt | sed 's/#.*//' | awk 'NF { print $1 }' | sort -u)
exported=$(nm -D --defined-only "$lib" | awk '$2 ~ /^[TWi]$/ { print $3 }' |
  grep -vE '^_ZNK?(St|9__gnu_cxx)|^_ZSt|^_(init|fini)$' | sort -u)

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
