#!/usr/bin/env bash
# The tools end to end: a devserver whose clock runs an hour ahead, one
# signed velmora-request that goes through after re-synchronising, one
# refused password, and the example printing a page. The devserver must
# then stop cleanly (under the sanitizers: without a leak).
# Usage: smoke.sh DEVSERVER REQUEST EXAMPLE
set -euo pipefail
devserver=$1 request=$2 example=$3
work=$(mktemp -d)
server=""
trap '[ -z "$server" ] || kill "$server" 2>/dev/null; rm -rf "$work"' EXIT
fail() {
  echo "FAIL: $*"
  cat "$work/log"
  exit 1
}

"$devserver" --port 0 --clock-offset 3600 --user alice --password wonderland \
  >"$work/port" 2>"$work/log" &
server=$!
for _ in $(seq 200); do
  [ -s "$work/port" ] && break
  sleep 0.05
done
port=$(head -n 1 "$work/port")
[ -n "$port" ] || fail "the devserver did not start"
call=("$request" --port "$port" --user alice)

out=$("${call[@]}" --password wonderland /echo '{"ping": [1, 2]}') ||
  fail "signed request: exit $?"
[ "$out" = '{"ping": [1, 2]}' ] || fail "signed request answered: $out"
grep -q '^POST /echo alice 401 auth_error 1' "$work/log" ||
  fail "no date refusal before the answer"

status=0
out=$("${call[@]}" --password wrong /echo x 2>"$work/err") || status=$?
[ "$status" = 67 ] && [ -z "$out" ] && [ "$(wc -l <"$work/err")" -le 1 ] ||
  fail "wrong password: exit $status, out '$out', err $(cat "$work/err")"

page=$("$example" --port "$port" --user alice --password wonderland) ||
  fail "example: exit $?"
grep -q '^clock_offset before the call: 0 s' <<<"$page" &&
  grep -Eq '^clock_offset after the call: +3600 s' <<<"$page" &&
  grep -q '^5 of 10 items' <<<"$page" &&
  [ "$(grep -c ' 192\.0\.2\.3 ' <<<"$page")" = 5 ] || fail "example printed: $page"

kill -TERM "$server"
status=0
wait "$server" || status=$?
server=""
[ "$status" = 0 ] || fail "the devserver stopped with status $status"
echo "smoke: ok"
