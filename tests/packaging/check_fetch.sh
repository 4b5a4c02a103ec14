#!/usr/bin/env bash
# Builds the consumer with the library taken in from this checkout through
# FetchContent, as a shared and as a static library, and through
# add_subdirectory, every option of ours
# at its default for a project that is not the top-level one. Each build
# must run the consumer and its generated record, leave the consumer's own
# settings alone and configure none of our tests or their dependencies. The
# static one also installs (VELMORA_INSTALL=ON) and is used from there
# through find_package and pkg-config.
# Usage: check_fetch.sh SOURCE_DIR CONSUMER_DIR CXX
set -euo pipefail
src=$1 consumer=$2 cxx=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
die() { echo "$*"; exit 1; }
# NAME CMAKE_ARGS...: configures and builds the consumer in $work/NAME.
build() {
  local dir=$work/$1
  shift
  cmake -S "$consumer" -B "$dir" -DCMAKE_CXX_COMPILER="$cxx" "$@" >"$dir.log" 2>&1 &&
    cmake --build "$dir" -j2 >>"$dir.log" 2>&1 || die "$(cat "$dir.log")"
  "$dir/consumer" >/dev/null && "$dir/notes" >/dev/null || die "the consumer in $dir fails"
}
# NAME: what taking the library in must not do to the consumer.
untouched() {
  local dir=$work/$1
  grep -q "consumer settings: build type '', standard '', options '', version ''$" "$dir.log" ||
    die "the library changed the consumer's settings: $(grep 'consumer settings' "$dir.log")"
  ! grep -qiE '^(GTest|OpenSSL|benchmark|Doxygen)_' "$dir/CMakeCache.txt" &&
    [ ! -d "$dir/_deps/velmora-build/tests" ] && [ ! -d "$dir/velmora/tests" ] ||
    die "$1 configured the library's tests or tools"
  ctest --test-dir "$dir" -N | grep -q "Total Tests: 0" || die "$1 has tests of ours"
}

echo "== FetchContent, shared"
build shared -DVELMORA_CHECKOUT="$src"
untouched shared
readelf -d "$work/shared/consumer" | grep -q 'NEEDED.*\[libVelmora\.so\.1\]' ||
  die "the consumer does not load libVelmora.so.1"
cmake --install "$work/shared" --prefix "$work/none" >/dev/null
[ ! -e "$work/none" ] && ! grep -q '^CMAKE_INSTALL_LIBDIR' "$work/shared/CMakeCache.txt" ||
  die "install rules by default: $(find "$work/none" -type f)"

echo "== add_subdirectory, shared"
build subdirectory -DVELMORA_SUBDIRECTORY="$src"
untouched subdirectory

echo "== FetchContent, static, installed"
build static -DVELMORA_CHECKOUT="$src" -DBUILD_SHARED_LIBS=OFF -DVELMORA_INSTALL=ON
untouched static
for program in consumer notes; do
  ! readelf -d "$work/static/$program" | grep -q 'NEEDED.*libVelmora' ||
    die "the static $program loads libVelmora"
done
prefix=$work/prefix
cmake --install "$work/static" --prefix "$prefix" >/dev/null
libdir=$(dirname "$(find "$prefix" -name libVelmora.a)")
[ -n "$libdir" ] && [ -z "$(find "$prefix" -name 'libVelmora.so*')" ] || die "not a static install"
build installed -DCMAKE_PREFIX_PATH="$prefix"
export PKG_CONFIG_PATH=$libdir/pkgconfig
# shellcheck disable=SC2046
"$cxx" -o "$work/by-pkg-config" "$consumer/consumer.cpp" $(pkg-config --cflags --libs velmora) &&
  "$work/by-pkg-config" >/dev/null || die "the static library does not link through pkg-config"
