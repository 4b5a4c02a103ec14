#!/usr/bin/env bash
# Installs a build into a temporary prefix, checks the library's SONAME
# links and that the installed tools run, then builds and runs a small
# consumer twice: with pkg-config and with CMake's find_package(Velmora);
# each of them, and the tools, must report the project's VERSION. Then
# packs the build with `cpack -G DEB`, unpacks the .deb into a scratch root
# and builds the consumer and the installed examples against that.
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
  for tool in velmora-request velmora-devserver velmora-gen; do
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

echo "== Debian package"
(cd "$work" && cpack -G DEB --config "$build/CPackConfig.cmake" >cpack.log) ||
  { cat "$work/cpack.log"; exit 1; }
dpkg-deb -x "$work/velmora_${version}_amd64.deb" "$work/root"
usr=$work/root/usr
for f in "$usr/$libdir/libVelmora.so.1" "$usr/include/velmora/version.h" \
  "$usr/$libdir/pkgconfig/velmora.pc" "$usr/$libdir/cmake/Velmora/VelmoraConfig.cmake"; do
  [ -e "$f" ] || { echo "not in the package: ${f#"$work/root"}"; exit 1; }
done
cmake -S "$consumer" -B "$work/deb-consumer" -DCMAKE_PREFIX_PATH="$usr" \
  -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_CXX_FLAGS="$flags" >"$work/configure.log" &&
  cmake --build "$work/deb-consumer" >"$work/build.log" ||
  { cat "$work/configure.log" "$work/build.log"; exit 1; }
"$work/deb-consumer/consumer" >/dev/null
if [ "$tools" = ON ]; then
  [ -x "$usr/bin/velmora-devserver" ] && [ -f "$usr/share/man/man1/velmora-request.1" ] ||
    { echo "the package lacks the tools or their man pages"; exit 1; }
  cmake -S "$usr/share/doc/velmora/examples" -B "$work/examples" -DCMAKE_PREFIX_PATH="$usr" \
    -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_CXX_FLAGS="$flags" >"$work/configure.log" &&
    cmake --build "$work/examples" >"$work/build.log" ||
    { cat "$work/configure.log" "$work/build.log"; exit 1; }
  "$usr/bin/velmora-request" --version >/dev/null
fi
