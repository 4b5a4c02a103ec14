#!/usr/bin/env bash
# What syncing costs a recorded exchange: CALLS signed calls, one after the
# other, through a devserver recording into a directory made under DIR (on
# the disk to measure), in rounds alternating between the devserver as built
# and the same devserver with fsync() made a no-op by a preloaded shim.
# Prints each round's microseconds per exchange, the medians, their ratio,
# and the median of the rounds' differences (a pair runs back to back, so
# that the machine's load moves both alike).
# Usage: bench/record_sync.sh DEVSERVER REQUEST [DIR [CALLS [ROUNDS]]]
set -euo pipefail
devserver=$1 request=$2 calls=${4:-200} rounds=${5:-5}
work=$(mktemp -d "${3:-.}/record_sync.XXXXXX")
trap 'rm -rf "$work"' EXIT
echo 'int fsync(int fd) { (void)fd; return 0; }' >"$work/nosync.c"
cc -shared -fPIC -o "$work/nosync.so" "$work/nosync.c"

# round PRELOAD: microseconds per exchange, over a fresh recording.
round() {
  rm -rf "$work/rec" "$work/port"
  LD_PRELOAD=$1 "$devserver" --port 0 --user u --password pw --record "$work/rec" \
    >"$work/port" 2>/dev/null &
  local server=$! port start end
  for _ in $(seq 200); do [ -s "$work/port" ] && break; sleep 0.05; done
  port=$(head -n 1 "$work/port")
  start=$(date +%s%N)
  for i in $(seq "$calls"); do
    "$request" --port "$port" --user u --password pw /echo "{\"call\": $i}" >/dev/null
  done
  end=$(date +%s%N)
  kill "$server"
  wait "$server" 2>/dev/null || true
  [ "$(ls "$work/rec" | wc -l)" = "$calls" ] || { echo "round: not all recorded" >&2; exit 1; }
  echo $(((end - start) / 1000 / calls))
}
median() { printf '%s\n' "$@" | sort -n | sed -n "$((($# + 1) / 2))p"; }

synced=() unsynced=() costs=()
for _ in $(seq "$rounds"); do
  synced+=("$(round "")")
  unsynced+=("$(round "$work/nosync.so")")
  costs+=($((synced[-1] - unsynced[-1])))
done
s=$(median "${synced[@]}") u=$(median "${unsynced[@]}")
echo "synced (us per exchange): ${synced[*]}"
echo "unsynced: ${unsynced[*]}"
echo "medians: synced $s, unsynced $u, ratio $(awk "BEGIN { printf \"%.2f\", $s / $u }")"
echo "cost per exchange, median of the rounds': $(median "${costs[@]}") us"
