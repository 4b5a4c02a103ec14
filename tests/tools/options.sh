#!/usr/bin/env bash
# velmora-request's options and exit statuses against a devserver whose clock
# runs an hour ahead. Columns: exit status | text in its output or first
# error line | arguments (standard input is a password file unless closed).
# A refused command line (2) must send nothing: the log stays as it was.
# Usage: options.sh DEVSERVER REQUEST
set -euo pipefail
devserver=$1 request=$2
work=$(mktemp -d)
trap 'kill $(jobs -p) 2>/dev/null; rm -rf "$work"' EXIT
"$devserver" --port 0 --user u --password pw --auth-key key --clock-offset 3600 \
  --fault /stale:auth-error=1 >"$work/port" 2>"$work/log" &
until [ -s "$work/port" ]; do sleep 0.05; done
run() { "$request" --port "$(head -n 1 "$work/port")" --auth-key key "$@" >"$work/out" 2>"$work/err"; }
printf 'pw\nsecond line\n' >"$work/pw"
printf 'key\r\n' >"$work/key"
while IFS='|' read -r want text args; do
  sent=$(wc -l <"$work/log")
  got=0
  eval "run $args" <"$work/pw" || got=$?
  { [ "$got" = "$want" ] && { [ -z "$text" ] || grep -qF -- "$text" "$work/out" <(head -n 1 "$work/err"); } &&
    { [ "$want" != 2 ] || [ "$(wc -l <"$work/log")" = "$sent" ]; }; } ||
    { echo "FAIL: $args: exit $got, $(cat "$work/out" "$work/err")"; exit 1; }
done <<'TABLE'
0|velmora-request 1.|--version
0|x|--user u --password-file "$work/pw" /echo x
0|x|--user u --password-file - --auth-key wrong --auth-key-file "$work/key" /echo x
0|the trace below shows the credentials|--user u --password pw --verbose /echo x
2|No such file or directory; nothing was sent|--user u --password pw /echo @"$work/nothing"
2|--token-file: cannot read|--user u --token-file "$work/nothing" /echo x
2|only one of the body and the secrets|--user u --password-file - /echo -
2|standard input is closed; nothing was sent|/echo - <&-
22|an HTTP error other than 200 and 401|--user u --password pw /nowhere x
67|refused the credentials or the date (401)|--user u --password wrong /echo x
67|a proxy that puts its own Date:|--user u --password pw /stale x
TABLE
echo "options: ok"
