#!/usr/bin/env bash
# A test of the kind users write against velmora-devserver: fixed answers
# with --route, faults with --fault, and velmora-request as the client (a
# program of your own would take its place). Exits non-zero on a failure.
# Usage: devserver_faults.sh [DEVSERVER [REQUEST]]   (default: from PATH)
set -euo pipefail
devserver=${1:-velmora-devserver} request=${2:-velmora-request}
work=$(mktemp -d)
trap 'kill "$server" 2>/dev/null; rm -rf "$work"' EXIT

echo '{"result": {"answer": 42}}' >"$work/answer.json"
"$devserver" --port 0 --user demo --token t0k3n --log json \
  --route "/answer=$work/answer.json" --route "/flaky=$work/answer.json" \
  --route "/stale=$work/answer.json" \
  --fault /flaky:status=503,first=1 --fault /stale:auth-error=1,first=1 \
  --fault /cut:close >"$work/port" 2>"$work/log" &
server=$!
until [ -s "$work/port" ]; do sleep 0.05; done
call() { "$request" --port "$(head -n 1 "$work/port")" --user demo --token t0k3n "$@"; }
expect() { # STATUS PATH: the exit status that one call must give
  local status=0
  call "$2" '{}' >/dev/null 2>&1 || status=$?
  [ "$status" = "$1" ] || { echo "FAIL: $2 gave $status, not $1"; cat "$work/log"; exit 1; }
}

[ "$(call /answer '{}')" = '{"result": {"answer": 42}}' ] || { echo "FAIL: /answer"; exit 1; }
expect 22 /flaky # the first request gets 503 ...
expect 0 /flaky  # ... and the next one its answer
expect 0 /stale  # a refused date: the library re-synchronises and sends again
expect 7 /cut    # a reply cut short is a failed transfer
# --log json: one object a line, for jq or a test's own reader.
grep -qF '{"method":"POST","outcome":"auth_error 1: injected date refusal","path":"/stale","status":401,"user":"-"}' \
  "$work/log" || { echo "FAIL: no date refusal logged"; exit 1; }
echo "devserver faults: ok"
