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
prefix=$work/prefix lib=$work/prefix/$libdir
die() { echo "$*"; exit 1; }
# SOURCE BINARY PREFIX: configures and builds a CMake project against PREFIX.
cmake_build() {
  cmake -S "$1" -B "$2" -DCMAKE_PREFIX_PATH="$3" -DCMAKE_CXX_COMPILER="$cxx" \
    -DCMAKE_CXX_FLAGS="$flags" >"$work/configure.log" &&
    cmake --build "$2" >"$work/build.log" || die "$(cat "$work/configure.log" "$work/build.log")"
}

cmake --install "$build" --prefix "$prefix" >"$work/install.log"
real=$(readlink -f "$lib/libVelmora.so")
[ -L "$lib/libVelmora.so" ] && [ "$(readlink -f "$lib/libVelmora.so.1")" = "$real" ] &&
  readelf -d "$real" | grep -q 'SONAME.*\[libVelmora\.so\.1\]' || die "wrong SONAME links in $lib"

# The installed tools find the installed library through their RPATH.
if [ "$tools" = ON ]; then
  for tool in velmora-request velmora-devserver velmora-gen; do
    "$prefix/bin/$tool" --help >/dev/null
    MANPATH=$prefix/share/man man -P cat "$tool" 2>&1 | grep -q "^NAME" || die "no man page for $tool"
    [ "$("$prefix/bin/$tool" --version)" = "$tool $version" ] || die "$tool is not version $version"
  done
fi

echo "== pkg-config"
export PKG_CONFIG_PATH=$lib/pkgconfig
# shellcheck disable=SC2046,SC2086
"$cxx" $flags -o "$work/by-pkg-config" "$consumer/consumer.cpp" \
  $(pkg-config --cflags --libs velmora) -Wl,-rpath,"$lib"
"$work/by-pkg-config" | tee "$work/out"
[ "$(pkg-config --modversion velmora)" = "$version" ] && grep -qx "version $version" "$work/out" ||
  die "not version $version"

echo "== find_package"
cmake_build "$consumer" "$work/cmake" "$prefix"
grep -q "package version $version\$" "$work/configure.log" || die "the CMake package is not version $version"
"$work/cmake/consumer"

echo "== Debian package"
(cd "$work" && cpack -G DEB --config "$build/CPackConfig.cmake" >cpack.log) || die "$(cat "$work/cpack.log")"
dpkg-deb -x "$work/velmora_${version}_amd64.deb" "$work/root"
usr=$work/root/usr
for f in "$libdir/libVelmora.so.1" include/velmora/version.h "$libdir/pkgconfig/velmora.pc" \
  "$libdir/cmake/Velmora/VelmoraConfig.cmake"; do
  [ -e "$usr/$f" ] || die "not in the package: /usr/$f"
done
cmake_build "$consumer" "$work/deb-consumer" "$usr"
"$work/deb-consumer/consumer" >/dev/null
if [ "$tools" = ON ]; then
  [ -x "$usr/bin/velmora-devserver" ] && [ -f "$usr/share/man/man1/velmora-request.1" ] ||
    die "the package lacks the tools or their man pages"
  cmake_build "$usr/share/doc/velmora/examples" "$work/examples" "$usr"
fi
