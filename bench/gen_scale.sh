#!/usr/bin/env bash
# What velmora-gen and the build of its output cost as a schema grows:
# synthetic schemas of 10, 100, 500 and 1,000 records (20 fields each: every
# base type, containers, records calling the next and the previous one, so
# that they form cycles; one operation per record). Prints the generation
# time (best of 9) for each, and per record, less the run of an empty schema
# (the program's start, about 30 ms on a loaded machine); then builds the
# 500-record schema's output at -O2 with JOBS compilers at a time (0: no
# build), as one file (--parts 1) and as velmora-gen writes it by default:
# the wall time and the largest translation unit's peak memory (GNU time's
# maximum resident set size).
# Usage: bench/gen_scale.sh BUILD_DIR [JOBS]    e.g. bench/gen_scale.sh build 2
set -euo pipefail
build=$(cd "$1" && pwd) jobs=${2:-2}
gen=$build/tools/velmora-gen
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
flags="-std=c++17 -O2 -c -I$(cd "$(dirname "$0")/.." && pwd)/include -I$build/include $(pkg-config --cflags jsoncpp)"

# schema N: N records R0..R(N-1) of 20 fields, and N operations.
schema() {
  awk -v n="$1" 'BEGIN {
    printf "{\"records\": {\n"
    for (i = 0; i < n; i++)
      printf "\"R%d\": {\"id\": \"Long\", \"code\": \"ULong\", \"weight\": \"Double\", \"when\": \"Time\", \"day\": \"Date\", \"count\": \"Integer\", \"ok\": \"Boolean\", \"name\": \"Unicode\", \"address\": \"IP\", \"secret\": \"Ciphered\", \"blob\": \"Blob\", \"order\": \"Ordering\", \"info\": \"ListInfo\", \"tags\": \"List<Unicode>\", \"scores\": \"Dict<Double>\", \"grid\": \"List<List<Long>>\", \"next\": \"R%d\", \"prev\": \"R%d\", \"children\": \"List<R%d>\", \"page\": \"ResultSet<R%d>\"}%s\n",
             i, (i + 1) % n, (i + n - 1) % n, (i + 1) % n, (i + n - 1) % n, i + 1 < n ? "," : ""
    printf "}, \"operations\": {\n"
    for (i = 0; i < n; i++)
      printf "\"r%d_find\": {\"path\": \"/r%d/find\", \"arguments\": {\"id\": \"Long\", \"info\": \"ListInfo\", \"sample\": \"R%d\"}, \"result\": \"ResultSet<R%d>\"}%s\n",
             i, i, i, i, i + 1 < n ? "," : ""
    printf "}}\n"
  }'
}
now() { date +%s%N; }

# generate N: the best of 9 runs on the N-record schema, in ns.
generate() {
  local best= start took
  for _ in $(seq 9); do
    rm -rf "$work/out$1"
    start=$(now)
    "$gen" --output-dir "$work/out$1" "$work/s$1.json"
    took=$(($(now) - start))
    [ -z "$best" ] || [ "$took" -lt "$best" ] && best=$took
  done
  echo "$best"
}
schema 0 >"$work/s0.json"
empty=$(generate 0)
echo "records | generation (ms) | per record, less an empty schema's run (us) | .cpp files | .cpp lines"
echo "0 | $((empty / 1000000)) | | 1 | $(wc -l <"$work/out0/s0.cpp")"
for n in 10 100 500 1000; do
  schema "$n" >"$work/s$n.json"
  took=$(generate "$n")
  echo "$n | $((took / 1000000)) | $(((took - empty) / 1000 / n)) | $(ls "$work/out$n"/*.cpp | wc -l) | $(cat "$work/out$n"/*.cpp | wc -l)"
done
[ "$jobs" = 0 ] && exit 0

# build DIR: every .cpp of DIR compiled, JOBS at a time; prints the wall
# time, the compilers' CPU time (user and system, less swayed by the other
# work of a shared machine) and the largest peak memory.
build() {
  local start end
  start=$(now)
  ls "$1"/*.cpp | xargs -P "$jobs" -I{} /usr/bin/time -f '%M %U %S' -o {}.time \
    g++ $flags -I"$1" {} -o {}.o
  end=$(now)
  cat "$1"/*.time | awk -v wall=$(((end - start) / 1000000000)) -v files="$(ls "$1"/*.cpp | wc -l)" '
    { cpu += $2 + $3; if ($1 > peak) peak = $1 }
    END { printf "%d s wall, %d s CPU, largest TU %d MB, %d file(s)\n", wall, cpu, peak / 1024, files }'
}
"$gen" --parts 1 --output-dir "$work/one" "$work/s500.json"
echo "500 records as one file: $(build "$work/one")"
echo "500 records as written by default: $(build "$work/out500")"
echo "load average after: $(cut -d' ' -f1-3 /proc/loadavg)"
