#!/usr/bin/env bash
# The devserver under many clients: a signed velmora-request call's median
# and worst time, CALLS calls one after the other, alone and under each
# load: 200 clients posting for SECONDS (ab, a new connection per request),
# 2,000 idle connections, 2,000 connections trickling a header byte a
# second (bench/support/hold_connections.py; both reopen what the server
# closes). With the listen queue's overflows (nstat, system-wide), the
# deepest our accept queue was seen (ss), and the devserver's RSS. The load
# clients run niced, so that on a small machine they delay the call less
# than the server does. Loopback only; every load is bounded and stops by
# itself.
# Usage: bench/devserver_load.sh DEVSERVER REQUEST [CALLS [SECONDS [COUNT]]]
set -euo pipefail
devserver=$1 request=$2 calls=${3:-20} seconds=${4:-20} count=${5:-2000}
hold=$(dirname "$0")/support/hold_connections.py
work=$(mktemp -d)
pids=()
trap 'kill "${pids[@]}" 2>/dev/null || true; wait 2>/dev/null; rm -rf "$work"' EXIT
command -v ab >/dev/null || { echo "needs ab (apache2-utils; scripts/install-deps)" >&2; exit 1; }
# Both sides hold a descriptor per connection.
ulimit -n $((2 * count + 1024)) || { echo "cannot open $((2 * count + 1024)) files" >&2; exit 1; }
export NSTAT_HISTORY=$work/nstat

"$devserver" --port 0 --user u --password pw >"$work/port" 2>/dev/null &
server=$!
pids+=("$server")
for _ in $(seq 200); do [ -s "$work/port" ] && break; sleep 0.05; done
port=$(head -n 1 "$work/port")
[ -n "$port" ] || { echo "the devserver did not start" >&2; exit 1; }

rss() { awk '/^VmRSS/ { printf "%.1f", $2 / 1024 }' "/proc/$server/status"; }
# The system's listen overflows since the last call (other programs' too),
# and the deepest our accept queue was seen, of its length.
overflows() {
  local deepest
  deepest=$(sort -n "$work/queue" | tail -n 1)
  command -v nstat >/dev/null &&
    printf '%s, ' "$(nstat -z TcpExtListenOverflows | awk '/ListenOverflows/ { print $2 }')"
  echo "queue $deepest of $(ss -Hltn "sport = :$port" | awk '{ print $3 }')"
}
# probe: "median worst failed" of CALLS signed calls, in ms; a call given
# no answer within 5 s counts as failed, at 5 s.
probe() {
  local times=() failed=0 start
  for _ in $(seq "$calls"); do
    start=$(date +%s%N)
    timeout 5 "$request" --port "$port" --user u --password pw /echo '{"probe": 1}' \
      >/dev/null 2>&1 || failed=$((failed + 1))
    times+=($((($(date +%s%N) - start) / 1000)))
  done
  printf '%s\n' "${times[@]}" | sort -n |
    awk -v failed="$failed" '{ t[NR] = $1 } END {
      printf "%.1f %.1f %d", t[int((NR + 1) / 2)] / 1000, t[NR] / 1000, failed }'
}
# row LOAD "median worst failed" (alone, just before) "..." (under the
# load) OVERFLOWS RSS: the ratio to the calls alone measured just before,
# so that the shared machine's own load moves both alike.
row() {
  local alone worst median failed
  read -r alone worst _ <<<"$2"
  read -r median worst failed <<<"$3"
  printf '| %s | %s | %s | %s | %.2f | %s | %s | %s |\n' "$1" "$alone" "$median" "$worst" \
    "$(awk "BEGIN { print $median / $alone }")" "$failed" "$4" "$5"
}
# under MODE ALONE: the probe while COUNT connections of that mode are held.
under() {
  nice -n 10 python3 "$hold" "$port" "$1" "$count" 120 >"$work/$1" &
  local helper=$!
  pids+=("$helper")
  for _ in $(seq 600); do grep -q ready "$work/$1" && break; sleep 0.1; done
  grep -q ready "$work/$1" || echo "only some of the $1 connections opened" >&2
  sleep 2
  local result=$(probe) size=$(rss)
  kill -TERM "$helper"
  wait "$helper" || true
  row "$count $1 connections ($(tail -n 1 "$work/$1"))" "$2" "$result" - "$size"
}

echo "| load | median alone ms | median ms | worst ms | median / alone | failed of $calls | listen overflows (system), deepest accept queue | RSS MB |"
echo "|---|---|---|---|---|---|---|---|"
before=$(rss)
alone=$(probe)
row "none" "$alone" "$alone" - "$before"
echo '{"list_info": {"__type__": "ListInfo", "__properties__": {"limit": 2}}}' >"$work/body"
alone=$(probe)
nstat -n 2>/dev/null || true
for _ in $(seq $((seconds * 10))); do ss -Hltn "sport = :$port" | awk '{ print $2 }'; sleep 0.1; done >"$work/queue" &
pids+=($!)
nice -n 10 ab -r -q -t "$seconds" -n 100000000 -c 200 -p "$work/body" -T application/json \
  "http://127.0.0.1:$port/items/list" >"$work/ab" 2>&1 &
ab=$!
pids+=("$ab")
sleep 2
result=$(probe)
wait "$ab" || true
row "200 clients posting for $seconds s" "$alone" "$result" "$(overflows)" "$(rss)"
under idle "$(probe)"
under trickle "$(probe)"
echo
echo "RSS before: $before MB, after: $(rss) MB"
grep -E '^(Complete|Failed) requests|^Requests per second|^ +(99%|100%)' "$work/ab" | sed 's/^/ab: /'
