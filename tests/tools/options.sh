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
run() { "$request" --port "$port" --auth-key key "$@" >"$work/out" 2>"$work/err" && echo 0 || echo $?; }

start "$work/port" --log json --auth-key key --clock-offset 3600 \
  --fault /slow:delay=1s --fault /hang:hang --fault /stale:auth-error=1
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

# velmora-request: secrets from files, unreadable bodies, what each failure
# says. Columns: exit status | text in the first line of stderr | arguments.
printf 'pw\nsecond line\n' >"$work/pw"
printf 'key\r\n' >"$work/key"
mkdir "$work/dir"
while IFS='|' read -r want text args; do
  sent=$(wc -l <"$work/log")
  eval "set -- $args"
  got=$(run "$@" <"$work/pw")
  [ "$got" = "$want" ] && { [ -z "$text" ] || head -n 1 "$work/err" | grep -qF -- "$text"; } ||
    fail "$args: exit $got, $(cat "$work/err")"
  [ "$want" != 2 ] || [ "$(wc -l <"$work/log")" = "$sent" ] || fail "$args: sent"
done <<'TABLE'
0||--user u --password-file "$work/pw" /echo x
0||--user u --password-file - --auth-key wrong --auth-key-file "$work/key" /echo x
2|No such file or directory; nothing was sent|--user u --password pw /echo @"$work/nothing"
2|it is a directory; nothing was sent|--user u --password pw /echo @"$work/dir"
2|--token-file: cannot read|--user u --token-file "$work/nothing" /echo x
2|only one of the body and the secrets|--user u --password-file - /echo -
22|an HTTP error other than 200 and 401|--user u --password pw /nowhere x
67|refused the credentials or the date (401)|--user u --password wrong /echo x
67|a proxy that puts its own Date:|--user u --password pw /stale x
0|the trace below shows the credentials|--user u --password pw --verbose /echo x
TABLE
status=0
"$request" --port "$port" /echo - <&- 2>"$work/err" || status=$?
[ "$status" = 2 ] && grep -q 'standard input is closed; nothing was sent$' "$work/err" ||
  fail "closed standard input"

echo "options: ok"
