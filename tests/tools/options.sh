#!/usr/bin/env bash
# The tools' options and limits, as tables of commands and outcomes.
# Usage: options.sh DEVSERVER REQUEST
set -euo pipefail
devserver=$1 request=$2
work=$(mktemp -d)
trap 'kill $(jobs -p) 2>/dev/null; rm -rf "$work"' EXIT
fail() { echo "FAIL: $*"; exit 1; }
start() { # PORTFILE ARGS...: a devserver whose port is in PORTFILE
  local file=$1
  shift
  "$devserver" --port 0 --user u --password pw "$@" >"$file" 2>>"$work/log" &
  until [ -s "$file" ]; do sleep 0.05; done
}
# ARGS...: exit status, then stdout and stderr, of one velmora-request call
run() { "$request" --port "$port" "$@" >"$work/out" 2>"$work/err" && echo 0 || echo $?; }

start "$work/port" --log json --fault /slow:delay=1s --fault /hang:hang
port=$(head -n 1 "$work/port")

# A second server on the same port is refused in one line.
status=0
"$devserver" --port "$port" 2>"$work/err" >/dev/null || status=$?
[ "$status" != 0 ] && grep -q "port $port is already in use" "$work/err" ||
  fail "port in use: exit $status, $(cat "$work/err")"

# 200 idle connections do not hold up a signed request.
fds=()
for _ in $(seq 200); do
  exec {fd}<>"/dev/tcp/127.0.0.1/$port"
  fds+=("$fd")
done
begin=$(date +%s%N)
[ "$(run --user u --password pw /echo idle)" = 0 ] || fail "with idle connections: $(cat "$work/err")"
(($(date +%s%N) - begin < 2000000000)) || fail "idle connections held a request up"
for fd in "${fds[@]}"; do exec {fd}>&-; done

# A chunked body over the limit gets 413.
code=$(head -c 9000000 /dev/zero | curl -s -o /dev/null -w '%{http_code}' \
  -H 'Transfer-Encoding: chunked' --data-binary @- "http://127.0.0.1:$port/echo")
[ "$code" = 413 ] || fail "chunked 9 MB body: $code"

# A delay answers late; a hang never answers; the log is JSON.
begin=$(date +%s)
[ "$(run --user u --password pw /slow x)" = 22 ] && (($(date +%s) - begin >= 1)) ||
  fail "delay=1s"
[ "$(timeout 1 "$request" --port "$port" /hang x >/dev/null 2>&1 || echo $?)" = 124 ] ||
  fail "hang answered"
grep -q '^{"method":"POST","outcome":"ok","path":"/echo","status":200,"user":"u"}$' \
  "$work/log" || fail "no JSON log line: $(cat "$work/log")"

echo "options: ok"
