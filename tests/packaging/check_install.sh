#!/usr/bin/env bash
# Installs a build into a temporary prefix, checks the library's SONAME
# links and that the installed tools run, then builds and runs a small
# consumer twice: with pkg-config and with CMake's find_package(Velmora);
# each of them, and the tools, must report the project's VERSION.
# Usage: check_install.sh BUILD_DIR CONSUMER_DIR LIBDIR CXX VERSION TOOLS [CXXFLAGS]
# TOOLS is ON when the build has the tools.
set -euo pipefail
build=$1 consumer=$2 libdir=$3 cxx=$4 version=$5 tools=$6 flags=${7:-}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix
lib=$prefix/$libdir

cmake --install "$build" --prefix "$prefix" >"$work/install.log"

real=$(readlink -f "$lib/libVelmora.so")
[ -L "$lib/libVelmora.so" ] && [ -L "$lib/libVelmora.so.1" ] &&
  [ "$(readlink -f "$lib/libVelmora.so.1")" = "$real" ] ||
  { echo "missing SONAME links in $lib"; ls -l "$lib"; exit 1; }
readelf -d "$real" | grep -q 'SONAME.*\[libVelmora\.so\.1\]' ||
  { echo "wrong SONAME"; readelf -d "$real"; exit 1; }

# The installed tools find the installed library through their RPATH.
if [ "$tools" = ON ]; then
  for tool in velmora-request velmora-devserver; do
    "$prefix/bin/$tool" --help >/dev/null
    MANPATH=$prefix/share/man man -P cat "$tool" 2>&1 | grep -q "^NAME" ||
      { echo "no man page for $tool"; exit 1; }
    [ "$("$prefix/bin/$tool" --version)" = "$tool $version" ] ||
      { echo "$tool --version: $("$prefix/bin/$tool" --version)"; exit 1; }
  done
fi

echo "== pkg-config"
# shellcheck disable=SC2046,SC2086
PKG_CONFIG_PATH=$lib/pkgconfig "$cxx" $flags -o "$work/by-pkg-config" \
  "$consumer/consumer.cpp" $(PKG_CONFIG_PATH=$lib/pkgconfig pkg-config --cflags --libs velmora) \
  -Wl,-rpath,"$lib"
"$work/by-pkg-config" | tee "$work/out"
[ "$(PKG_CONFIG_PATH=$lib/pkgconfig pkg-config --modversion velmora)" = "$version" ] &&
  grep -qx "version $version" "$work/out" || { echo "not version $version"; exit 1; }

echo "== find_package"
cmake -S "$consumer" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$prefix" \
  -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_CXX_FLAGS="$flags" >"$work/configure.log" ||
  { cat "$work/configure.log"; exit 1; }
grep -q "package version $version\$" "$work/configure.log" ||
  { echo "the CMake package is not version $version"; exit 1; }
cmake --build "$work/cmake" >"$work/build.log" || { cat "$work/build.log"; exit 1; }
"$work/cmake/consumer"
