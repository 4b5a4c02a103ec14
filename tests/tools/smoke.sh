#!/usr/bin/env bash
# The tools end to end against a devserver whose clock runs an hour ahead:
# velmora-request's options and exit statuses as a table (every signed call
# goes through after re-synchronising; a refused command line sends nothing),
# its walks of the whole catalogue, then the example printing a page, then
# many clients waiting at once and a request trickled past its deadline.
# The devserver must then stop cleanly
# (under the sanitizers: without a leak).
# Usage: smoke.sh DEVSERVER REQUEST EXAMPLE
set -euo pipefail
devserver=$1 request=$2 example=$3
work=$(mktemp -d)
server="" second=""
trap 'kill $server $second 2>/dev/null || true; rm -rf "$work"' EXIT
fail() { echo "FAIL: $*"; cat "$work/log"; exit 1; }

"$devserver" --port 0 --clock-offset 3600 --user u --password pw \
  --fault /stale:auth-error=1 --fault /once:auth-error=1,first=1 --fault /hang:hang --request-timeout 4 >"$work/port" 2>"$work/log" &
server=$!
for _ in $(seq 200); do [ -s "$work/port" ] && break; sleep 0.05; done
port=$(head -n 1 "$work/port")
[ -n "$port" ] || fail "the devserver did not start"
printf 'pw\nsecond line\n' >"$work/pw"
printf 'key\r\n' >"$work/key"

# exit status | text in standard output or the first error line | arguments
# (standard input is the password file unless closed)
while IFS='|' read -r want text args; do
  sent=$(wc -l <"$work/log") got=0
  eval "\"$request\" --port $port $args" <"$work/pw" >"$work/out" 2>"$work/err" || got=$?
  { [ "$got" = "$want" ] && grep -qF -- "$text" "$work/out" <(head -n 1 "$work/err") &&
    { [ "$want" != 2 ] || [ "$(wc -l <"$work/log")" = "$sent" ]; }; } ||
    fail "$args: exit $got, $(cat "$work/out" "$work/err")"
done <<'TABLE'
0|velmora-request 1.|--version
0|{"ping": [1, 2]}|--user u --password pw /echo '{"ping": [1, 2]}'
0|x|--user u --password-file "$work/pw" /echo x
0|x|--user u --password-file - --auth-key-file "$work/key" /echo x
0|x|--user u --password-hash 1A91D62F7CA67399625A4368A6AB5D4A3BAA6073 /echo x
22|an HTTP error other than 200 and 401|--user u --password pw /items/list '{"list_info": {"__properties__": {"limit": "x"}}}'
0|the trace below shows the credentials|--user u --password pw --verbose /echo x
2|No such file or directory; nothing was sent|--user u --password pw /echo @"$work/nothing"
2|--token-file: cannot read|--user u --token-file "$work/nothing" /echo x
2|--auth-key-file: the first line of|--user u --password pw --auth-key-file /dev/null /echo x
2|only one of the body and the secrets|--user u --password-file - /echo -
2|standard input is closed; nothing was sent|/echo - <&-
22|an HTTP error other than 200 and 401|--user u --password pw /nowhere x
8|answered without a ResultSet|--user u --password pw --paginate /echo '{"q": {"__type__": "ListInfo"}}'
67|refused the credentials (401, auth_error 2): the date was not the cause|--user u --password wrong /echo x
67|refused the credentials (401, auth_error 2)|--user nobody --password pw /echo x
67|it was not signed; give --user with --password or --token|/echo x
67|a proxy that puts its own Date:|--user u --password pw /stale x
67|refused the credentials (401, auth_error 2): the date was not the cause|--user u --password wrong /once x
67|--user was given without a secret; give --password, --password-file|--user u /echo x
TABLE
grep -q '^POST /echo u 401 auth_error 1' "$work/log" &&
  grep -q '^POST /echo u 401 auth_error 2: wrong signature' "$work/log" &&
  grep -q '^POST /items/list u 400 bad list_info' "$work/log" || fail "the log's outcomes"
# A command line (exit 2) or a replay (exit 1) the devserver cannot use
# stops it with its reason.
echo 'not json' >"$work/bad.json"
while IFS='|' read -r want text args; do
  got=0
  timeout 10 "$devserver" --port 0 $args >/dev/null 2>"$work/err" || got=$?
  [ "$got" = "$want" ] && grep -qF -- "$text" "$work/err" || fail "devserver $args: exit $got, $(cat "$work/err")"
done <<TABLE
2|unrecognized option '--bogus'|--bogus
2|holds no JSON|--route /x=$work/bad.json
2|cannot read "$work/nothing"|--route /x=$work/nothing
1|cannot read "$work/nothing": No such file|--replay $work/nothing
TABLE

# --help: the redacted names packed into lines of at most 79 columns.
help=$(timeout 10 "$devserver" --help)
grep -q '^  AUTHENTICATION, LOCAL_AUTH_KEY, Authorization,' <<<"$help" &&
  grep -q ' X-Amz-Security-Token\.$' <<<"$help" &&
  [ -z "$(sed -n '/^Redacted/,$p' <<<"$help" | awk 'length > 79')" ] ||
  fail "devserver --help: $help"

# A request held by a hang leaves the others answered.
"$request" --port "$port" --user u --password pw /hang x >/dev/null 2>&1 &
hung=$!
sleep 1
timeout 5 "$request" --port "$port" --user u --password pw /echo x >/dev/null ||
  fail "beside a hung request: exit $?"
kill "$hung" 2>/dev/null || true

# --paginate: the catalogue, one item a line in id order, the same in pages
# of 7 as in one page, with one date refusal per walk (the clock's offset
# carries across pages). A failed page names the offset to resume from.
walk() { "$request" --port "$1" --user u --password pw --paginate --page-size "$2" \
  /items/list '{"list_info": {"__type__": "ListInfo"}}'; }
refusals() { grep -c '^POST /items/list u 401 auth_error 1' "$work/log"; }
before=$(refusals)
walk "$port" 0 >"$work/all" && walk "$port" 7 >"$work/paged" || fail "paginate: exit $?"
ids=$(grep -o '"id":{"__type__":"Long","__value__":"[0-9]*"}' "$work/paged" | tr -dc '0-9\n')
[ "$ids" = "$(seq 40)" ] && cmp -s "$work/all" "$work/paged" &&
  [ "$(refusals)" = $((before + 2)) ] ||
  fail "paginate printed: $(head -c 300 "$work/paged")"
# On a terminal the progress line is cleared before each page's lines and
# ends at the collection's size.
export request port
script -qec '"$request" --port "$port" --user u --password pw --paginate --page-size 15 \
  /items/list "{\"list_info\": {\"__type__\": \"ListInfo\"}}"' /dev/null |
  tr -d '\r' | sed 's/.*\x1b\[K//' >"$work/tty"
[ "$(head -n 40 "$work/tty")" = "$(cat "$work/all")" ] &&
  [ "$(tail -n 1 "$work/tty")" = "40 / 40 items (page 3)" ] ||
  fail "paginate on a terminal: $(cat -v "$work/tty" | head -c 300)"
"$devserver" --port 0 --user u --password pw --items 41 --fault /items/list:status=500,after=3 \
  >"$work/port2" 2>/dev/null &
second=$!
for _ in $(seq 200); do [ -s "$work/port2" ] && break; sleep 0.05; done
# Past the fortieth item the names come again with a number, a second on.
found=$("$request" --port "$(head -n 1 "$work/port2")" --user u --password pw /items/list \
  '{"list_info": {"__type__": "ListInfo", "__properties__": {"search_parameters":
  {"__type__": "Dict", "__sub_type__": "Unicode",
   "__elements__": {"name": "agate-1", "created": "1700000001"}}}}}') || fail "search: exit $?"
grep -q '"__total_items__":1' <<<"$found" || fail "item 41 is not agate-1 a second on: $found"
got=0
walk "$(head -n 1 "$work/port2")" 7 >"$work/cut" 2>"$work/err" || got=$?
kill "$second"
second=""
[ "$got" = 22 ] && [ "$(wc -l <"$work/cut")" = 14 ] &&
  grep -q 'the walk stopped at offset 14, after 14 items' "$work/err" ||
  fail "a failed walk: exit $got, $(cat "$work/err")"

page=$("$example" --port "$port" --user u --password pw) || fail "example: exit $?"
grep -q '^clock_offset before the call: 0 s' <<<"$page" &&
  grep -Eq '^clock_offset after the call: +3600 s' <<<"$page" &&
  grep -q '^5 of 10 items' <<<"$page" &&
  [ "$(grep -c ' 192\.0\.2\.3 ' <<<"$page")" = 5 ] || fail "example printed: $page"

# The HTTP layer's own answers: status and type | curl's options (an
# unsigned POST that passes the layer gets 401).
head -c $((8 << 20)) /dev/zero >"$work/8m"
{ cat "$work/8m"; echo; } >"$work/8m.1"
while IFS='|' read -r want args; do
  got=$(eval "curl -s -o /dev/null -w '%{http_code} %{content_type}' $args http://127.0.0.1:$port/echo")
  [ "$got" = "$want" ] || fail "$args: $got"
done <<'TABLE'
405 application/json|
401 application/json|--data-binary @"$work/8m"
413 application/json|--data-binary @"$work/8m.1"
413 application/json|-H 'Transfer-Encoding: chunked' --data-binary @"$work/8m.1"
431 |-d x -H "X-Big: $(head -c $((32 << 10)) /dev/zero | tr '\0' a)"
TABLE
# A refusal of the devserver's own carries its Date: as every answer does.
curl -s -o /dev/null -D "$work/head" -F x=y "http://127.0.0.1:$port/echo"
grep -q '^HTTP/1.1 415 ' "$work/head" && grep -q '^Date: ' "$work/head" || fail "multipart: $(cat "$work/head")"

# 600 clients (more than a pool of 512 workers would hold) trickle their
# heads, a byte a second each; a signed call is still answered at once.
trap '' PIPE
clients=()
for _ in $(seq 600); do
  exec {fd}<>"/dev/tcp/127.0.0.1/$port"
  printf 'POST /echo?token=t HTTP/1.1\r\nX' >&"$fd"
  clients+=("$fd")
done
for _ in 1 2; do
  sleep 1
  for fd in "${clients[@]}"; do printf y >&"$fd" || fail "a waiting client was closed before its time"; done
done
start=$(date +%s%N)
timeout 10 "$request" --port "$port" --user u --password pw /echo x >/dev/null || fail "beside 600 waiting clients: exit $?"
took=$((($(date +%s%N) - start) / 1000000))
[ "$took" -lt 2000 ] || fail "a signed call took $took ms beside 600 waiting clients"
# One trickles on, a byte every half second, past --request-timeout: 408.
for _ in $(seq 10); do printf y >&"${clients[0]}" 2>/dev/null || break; sleep 0.5; done
timeout 5 cat <&"${clients[0]}" >"$work/late" || true
head -n 1 "$work/late" | grep -q '^HTTP/1.1 408 ' &&
  grep -qF '{"error":"request not whole within 4 s","status":408}' "$work/late" &&
  grep -q '^- /echo - 408 request not whole within 4 s$' "$work/log" || fail "trickled: $(cat "$work/late")"
for fd in "${clients[@]}"; do exec {fd}>&-; done

kill -TERM "$server"
status=0
wait "$server" || status=$?
server=""
[ "$status" = 0 ] || fail "the devserver stopped with status $status"
echo "smoke: ok"
