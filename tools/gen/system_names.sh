#!/bin/sh
# Writes OUT: the macros, and the file-scope names of the C library, that
# generated code sees through its headers, as the compiler CXX sees them;
# generated names must differ from both.
# Usage: system_names.sh CXX OUT [COMPILER FLAGS...]
set -eu
cxx=$1 out=$2
shift 2
probe='#include <cerrno>
#include <climits>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>
#include <string_view>
#include <velmora/generated.h>
#include <velmora/velmora.h>'
names() { grep -E '^[A-Za-z][A-Za-z0-9_]*$' | LC_ALL=C sort -u | sed 's/.*/    "&",/'; }
{
  echo '/* Written by system_names.sh at build time. */'
  echo 'const char *const system_macros[] = {'
  printf '%s\n' "$probe" | "$cxx" -std=gnu++17 "$@" -dM -E -x c++ - |
    sed -n 's/^#define \([A-Za-z0-9_]*\).*/\1/p' | names
  echo '};'
  echo 'const char *const system_globals[] = {'
  # Only the C headers' lines: their declarations are all at file scope.
  printf '%s\n' "$probe" | "$cxx" -std=gnu++17 "$@" -E -x c++ - |
    awk '/^# [0-9]+ "/ { c = $3 !~ /c\+\+|json|velmora|curl|^"</; next } c' |
    grep -oE '(typedef[^;]*[^A-Za-z0-9_]|\} *|(struct|union|enum) +|extern [^;(]*[^A-Za-z0-9_(])[A-Za-z][A-Za-z0-9_]* *[;({]?' |
    sed -E 's/ *[;({]$//; s/.*[^A-Za-z0-9_]//' | names
  echo '};'
} >"$out.tmp"
mv "$out.tmp" "$out"
