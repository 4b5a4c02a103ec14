#!/usr/bin/env bash
# velmora-devserver between a client and the service: signed calls through a
# recording devserver to one whose clock runs an hour ahead (the first call
# goes through only after a re-synchronisation), recordings and command
# lines free of every secret (given by files and the environment), the same
# page from a replaying devserver, replay's matching order as a table, whole
# files after a recorder is killed mid-write, recorders sharing a directory,
# no directory from a failed start, redaction as a table, the lines a relay
# passes on, and 502 for an unreachable upstream.
# From the recording, velmora-gen --infer writes the service's schema, and
# a program calling the inferred operation, compiled with COMPILE..., gets
# the same page from the replaying devserver.
# Usage: relay.sh DEVSERVER REQUEST GEN COMPILE...
set -euo pipefail
devserver=$1 request=$2 gen=$3
compile=("${@:4}")
work=$(mktemp -d)
servers=()
trap 'kill "${servers[@]}" 2>/dev/null || true; wait 2>/dev/null; rm -rf "$work"' EXIT
fail() { echo "FAIL: $*"; tail -n 20 "$work"/*.log; exit 1; }

# start NAME OPTIONS...: a devserver on a free port, its port in $port.
start() {
  local name=$1
  shift
  "$devserver" --port 0 "$@" >"$work/$name.port" 2>"$work/$name.log" &
  servers+=($!)
  for _ in $(seq 200); do [ -s "$work/$name.port" ] && break; sleep 0.05; done
  port=$(head -n 1 "$work/$name.port")
  [ -n "$port" ] || fail "$name did not start"
}

password=pw-Secret-7f3a token=tk-Secret-91c2 key=key-Secret-5d0e
printf '%s\n' "$key" >"$work/key"
printf '%s\n' "$password" >"$work/pw"
printf '%s\r\n' "$token" >"$work/tk"
: >"$work/empty"
creds=(--user u --password-file "$work/pw" --user t --token-file "$work/tk")
accounts=("${creds[@]}" --auth-key-file "$work/key")
as_u=(--user u --password "$password" --auth-key-file "$work/key")
as_t=(--user t --token "$token" --auth-key-file "$work/key")
page='{"list_info": {"__type__": "ListInfo", "__properties__": {"limit": 2, "offset": 3}}}'

# ---- Record: the live service behind a recorder ----------------------------
VELMORA_DEVSERVER_AUTH_KEY=$key start live --clock-offset 3600 "${creds[@]}"
live=$port
"$devserver" --port "$live" --record "$work/never" 2>"$work/never.log" && fail "two servers on one port"
grep -q "port $live is already in use; --port 0 takes any free port" "$work/never.log" && [ ! -e "$work/never" ] ||
  fail "a failed start made its directory"
start recorder --upstream "127.0.0.1:$live" --record "$work/rec" --record-limit $((4 << 20))
recorder=$port

"$request" --port "$recorder" "${as_u[@]}" --verbose /items/list "$page" \
  >"$work/page.live" 2>"$work/trace" || fail "page through the recorder: exit $?"
grep -q '"__total_items__":40' "$work/page.live" || fail "page: $(cat "$work/page.live")"
grep -q '^POST /items/list u 401 auth_error 1' "$work/live.log" ||
  fail "the first call was not refused for its date"
"$request" --port "$recorder" "${as_t[@]}" /echo '{"zeta": "z", "alpha": 10}' >"$work/echo" ||
  fail "token call through the recorder: exit $?"
head -c $((5 << 20)) /dev/zero | tr '\0' a >"$work/big"
"$request" --port "$recorder" "${as_t[@]}" /echo @"$work/big" >"$work/big.echo" &&
  cmp -s "$work/big" "$work/big.echo" || fail "a 5 MiB body did not come back whole"

# Two refusals, two answers, two answers for the token account.
ls "$work/rec" >"$work/names"
[ "$(tr '\n' ' ' <"$work/names")" = "000001.json 000002.json 000003.json 000004.json 000005.json 000006.json " ] ||
  fail "recorded: $(cat "$work/names")"
grep -q '"status": 401' "$work/rec/000001.json" &&
  grep -q '"date": ' "$work/rec/000001.json" &&
  grep -q '"status": 200' "$work/rec/000002.json" && grep -q '"date": ' "$work/rec/000002.json" &&
  grep -qF '"request": {"zeta": "z", "alpha": 10},' "$work/rec/000004.json" &&
  grep -q '"request_omitted": 5242880' "$work/rec/000006.json" &&
  grep -q '"reply_omitted": 5242880' "$work/rec/000006.json" || fail "recording contents"

# No secret, no hash of one and no signature the client sent is on disk or
# in a devserver's command line.
signatures=$(grep -o 'AUTHENTICATION:[^ ]* [^:]*:[^ ]*' "$work/trace" | sed 's/.*://' | tr -d '\r')
hash=$(printf %s "$password" | sha1sum | cut -c 1-40)
[ "$(wc -w <<<"$signatures")" = 2 ] || fail "no signatures in the trace"
for secret in "$password" "$hash" "$token" "$key" $signatures; do
  ! grep -rqF -- "$secret" "$work/rec" /proc/"${servers[0]}"/cmdline || fail "\"$secret\" is seen"
done
grep -q '"AUTHENTICATION" : "(removed)"' "$work/rec/000002.json" || fail "no mark"

# ---- Replay the recording ---------------------------------------------------
start replayer --replay "$work/rec" "${accounts[@]}"
"$request" --port "$port" "${as_u[@]}" /items/list "$page" >"$work/page.replayed" ||
  fail "replayed page: exit $?"
cmp -s "$work/page.live" "$work/page.replayed" || fail "replayed page differs"
replayer=$port
# The secrets from the variable and the files are required.
while read -r at args; do
  got=0
  eval "\"$request\" --port \$$at --user u $args /echo x" >/dev/null 2>&1 || got=$?
  [ "$got" = 67 ] || fail "$at took $args: exit $got"
done <<TABLE
live --password-file $work/pw --auth-key wrong
replayer --password-file $work/pw --auth-key wrong
replayer --password wrong --auth-key-file $work/key
TABLE
# A secret file that cannot be read or is empty stops it with one line.
while IFS='|' read -r text args; do
  got=0
  eval "timeout 5 \"$devserver\" $args" >/dev/null 2>"$work/err" || got=$?
  [ "$got" = 2 ] && [ "$(wc -l <"$work/err")" = 1 ] && grep -qF -- "$text" "$work/err" ||
    fail "$args: exit $got, $(cat "$work/err")"
done <<'TABLE'
--password-file: cannot read|--user u --password-file "$work/nothing"
--token-file: the first line of|--user t --token-file "$work/empty"
--auth-key-file: the first line of|--auth-key-file "$work/empty"
TABLE

# ---- Infer the service, generate its client, call it offline ---------------
"$gen" --infer "$work/rec" >"$work/service.json" 2>&1 || fail "infer: $(cat "$work/service.json")"
grep -qF '"items_list": {"path": "/items/list", "arguments": {"list_info": "ListInfo"}, "result": "ResultSet<Item>"}' \
  "$work/service.json" &&
  grep -qF '"echo": {"path": "/echo", "arguments": {"zeta": "Unicode", "alpha": "Integer"}, "result": "Unicode", "result_member": "zeta"}' \
    "$work/service.json" || fail "inferred: $(cat "$work/service.json")"
"$gen" --output-dir "$work/client" "$work/service.json" || fail "generation"
cat >"$work/client/call.cpp" <<'CALL'
#include <cstdio>
#include <cstdlib>

#include "service.h"

/* PORT PASSWORD KEY: the page of two items from offset 3, one name a line. */
int main(int, char **argv) {
  client_context_s *context = client_context_new();
  client_context_set_port(context, atoi(argv[1]));
  client_context_set_user(context, "u");
  client_context_set_password(context, argv[2]);
  client_context_set_auth_key(context, argv[3]);
  ListInfo *query = ListInfo_new();
  listinfo_setLimit(query, 2);
  listinfo_setOffset(query, 3);
  result_set_s *page = nullptr;
  int result = items_list(context, query, &page);
  for (int i = 0; result == 0 && i < result_get_nb_elements(page); i++)
    puts(item_getName(static_cast<Item *>(result_set_get(page, i))));
  printf("total %d\n", result == 0 ? result_set_get_total_items(page) : -1);
  result_set_del(page);
  ListInfo_deleter(query);
  client_context_free(context);
  return result;
}
CALL
"${compile[0]}" -o "$work/client/call" "$work/client/call.cpp" "$work/client/service.cpp" "${compile[@]:1}" \
  >"$work/compile.log" 2>&1 || fail "compiling the client: $(cat "$work/compile.log")"
"$work/client/call" "$replayer" "$password" "$key" >"$work/called" || fail "the inferred call: exit $?"
[ "$(wc -l <"$work/called")" = 3 ] && grep -qx 'total 40' "$work/called" || fail "called: $(cat "$work/called")"
while read -r name; do
  [ "$name" = "total 40" ] || grep -qF "\"$name\"" "$work/page.live" || fail "$name is not on the live page"
done <"$work/called"

# ---- Replay's matching order ------------------------------------------------
# A JSON reply is answered with its bytes in the file, whatever the members
# before it hold (000002's key with an escape).
mkdir "$work/order"
# number|path|request member|status|reply member
while IFS='|' read -r number path asked status answer; do
  printf '{"recording": 1, "method": "POST", "path": %s, "request_headers": {},
  %s, "status": %s, %s}\n' "$path" "$asked" "$status" "$answer" >"$work/order/$number.json"
done <<'TABLE'
000001|"/a"|"request": {"n": 1}|200|"reply": {"r": "one", "n": 123456789012345678901234}
000002|"/a"|"request": {"n": 2}, "n\u006fte": "a key with an escape"|200|"reply": {"r": "two"}
000003|"/a"|"request": {"n": 1}|401|"reply": {"r": "refused"}
000004|"/b"|"request_text": "x"|200|"reply_text": "bee"
000005|"/b"|"request_text": "y"|200|"reply_omitted": 9000000
000006|"/c"|"request": {}|401|"reply": {"r": "refused"}
000008|null|"request": {}|200|"reply": {}
000009|"/e"|"request": {}|null|"reply": {}
000010|"/e"|"request": {}|"200"|"reply": {}
000011|"/e"|"request": {}|200|"answer": {}
TABLE
echo nope >"$work/order/000007.json"
start order --replay "$work/order" "${accounts[@]}"
for skipped in "000003.json skipped: status 401: only 200" \
  "000005.json skipped: its reply was too large" "000007.json skipped: not JSON" \
  "000008.json skipped: no path" "000009.json skipped: no status" \
  "000010.json skipped: its status is no number" "000011.json skipped: no reply"; do
  grep -qF "$skipped" "$work/order.log" || fail "no \"$skipped\": $(cat "$work/order.log")"
done
# exit status | expected output | path and body
while IFS='|' read -r want text args; do
  got=0
  eval "\"$request\" --port $port \"\${as_u[@]}\" $args" >"$work/out" 2>&1 || got=$?
  [ "$got" = "$want" ] && grep -qF -- "$text" "$work/out" || fail "$args: exit $got, $(cat "$work/out")"
done <<'TABLE'
0|{"r": "one", "n": 123456789012345678901234}|/a '{"n":1}'
0|{"r": "two"}|/a '{ "n" : 2 }'
0|{"r": "two"}|/a '{"n":9}'
0|bee|/b x
0|bee|/b y
22|no recorded answer for \"/c\"|/c '{}'
22|no recorded answer for \"/d\"|/d '{}'
TABLE
mkdir "$work/nothing"
start nothing --replay "$work/nothing"
grep -q "warning: nothing to replay in" "$work/nothing.log" || fail "an empty replay"

# ---- A recorder killed while writing leaves whole files ---------------------
start killed --record "$work/killed" "${accounts[@]}"
head -c $((3 << 20)) /dev/zero | tr '\0' b >"$work/three"
calls=()
for _ in 1 2 3 4 5 6; do
  "$request" --port "$port" "${as_u[@]}" /echo @"$work/three" >/dev/null 2>&1 &
  calls+=($!)
done
for _ in $(seq 200); do ls "$work/killed" | grep -q json && break; sleep 0.01; done
{
  kill -9 "${servers[-1]}"
  wait "${servers[-1]}" "${calls[@]}" || true
} 2>/dev/null
whole=$(ls "$work/killed" | grep -c '^[0-9]\{6\}\.json$' || true)
start reread --replay "$work/killed" "${accounts[@]}"
grep -q "replaying $whole of $whole exchanges" "$work/reread.log" &&
  ! grep -q 'skipped' "$work/reread.log" || fail "after the kill: $(ls -a "$work/killed")"
# A new recorder numbers on and clears what the killed one left aside.
highest=$(ls "$work/killed" | tail -n 1)
echo '{"answer": 42}' >"$work/fixed.json"
start again --record "$work/killed" --route "/fixed=$work/fixed.json" "${accounts[@]}"
"$request" --port "$port" "${as_u[@]}" /echo x >/dev/null || fail "recording again"
[ "$(ls -a "$work/killed" | tail -n 1)" = "$(printf '%06d.json' $((10#${highest%.json} + 1)))" ] &&
  ! ls -a "$work/killed" | grep -q '\.tmp$' || fail "after a restart: $(ls -a "$work/killed")"

# ---- Redaction: default names and --redact's, in headers and queries ------
start redactor --upstream 127.0.0.1:1 --route "/r=$work/fixed.json" --record "$work/red" \
  --redact Sid --redact x-team-pass
# path | curl's header options | what the recording holds (and no "sec-")
while IFS='|' read -r path headers text; do
  eval "curl -s -d '{}' $headers \"http://127.0.0.1:$port\$path\"" >/dev/null
  file=$work/red/$(ls "$work/red" | tail -n 1)
  grep -qF -- "$text" "$file" && ! grep -q 'sec-' "$file" || fail "$path $headers: $(cat "$file")"
done <<'TABLE'
/r|-H 'X-Api-Key: sec-1'|"X-Api-Key" : "(removed)"
/r|-H 'x-auth-token: sec-2' -H 'X-Team-Pass: sec-3' -H 'Private-Token: sec-7'|"X-Team-Pass" : "(removed)"
/r?a=1&api_key=sec-4&b=%41&session_id=sec-8||"path": "/r?a=1&api_key=(removed)&b=%41&session_id=(removed)"
/r?TOKEN=sec-5&key=shown&Sid=sec-6&access_token&sig=||"path": "/r?TOKEN=(removed)&key=shown&Sid=(removed)&access_token&sig=(removed)"
TABLE
# A route's answer is recorded, and replayed for a path redacted alike.
start unredacted --replay "$work/red" --redact SID "${accounts[@]}"
"$request" --port "$port" "${as_u[@]}" '/r?TOKEN=t&key=shown&Sid=s&access_token&sig=' '{}' |
  grep -qF '"answer": 42' || fail "a redacted path was not replayed"

# ---- What a relay passes on: the client's lines, none libcurl would add ----
start inner --record "$work/inner"
inner=$port
start outer --upstream "127.0.0.1:$inner"
# curl's header options | a line the upstream must see | one it must not
while IFS='|' read -r headers seen unseen; do
  eval "curl -s -d '{}' $headers \"http://127.0.0.1:$port/r\"" >/dev/null
  file=$work/inner/$(ls "$work/inner" | tail -n 1)
  grep -qF -- "$seen" "$file" && ! grep -qiF -- "$unseen" "$file" || fail "$headers: $(cat "$file")"
done <<'TABLE'
-H 'Accept:' -H 'Content-Type:'|"Host"|"Accept"
-H 'Accept:' -H 'Content-Type:'|"Content-Length" : "2"|"Content-Type"
-H 'Accept: a/b' -H 'Content-Type:'|"Accept" : "a/b"|"Expect"
-H 'Accept:' -H 'X-Empty;'|"X-Empty" : ""|"*/*"
TABLE

# ---- Recorders sharing a directory -------------------------------------------
# The first removes what a stopped recorder left aside (a running one's stays);
# then every call, whichever recorder it reaches, is recorded exactly once.
mkdir "$work/shared"
dead=$(sh -c 'echo $$')
touch "$work/shared/".{"000001-$dead.json.tmp","000001-$$.json.tmp","000002-$dead.json",notes.tmp}
ports=()
for i in 1 2 3; do
  start "shared$i" --record "$work/shared" "${accounts[@]}"
  ports+=("$port")
done
grep -qx "velmora-devserver: removed 1 unfinished file stopped recorders left in $work/shared" \
  "$work/shared1.log" && ! grep -q removed "$work/shared2.log" || fail "leftovers: $(ls -A "$work/shared")"
calls=()
for i in $(seq 60); do
  "$request" --port "${ports[i % 3]}" "${as_u[@]}" /echo "{\"call\": $i}" >/dev/null 2>&1 &
  calls+=($!)
done
for call in "${calls[@]}"; do wait "$call" || fail "a call to a shared recorder: exit $?"; done
# 60 files holding 60 distinct requests: each call once.
[ "$(ls "$work/shared" | grep -c '^[0-9]\{6\}\.json$')" = 60 ] &&
  [ "$(grep -ho '"request": {"call": [0-9]*}' "$work/shared"/*.json | sort -u | wc -l)" = 60 ] &&
  [ "$(ls -A "$work/shared" | grep -c '\.tmp$')" = 2 ] || fail "shared: $(ls -A "$work/shared")"

# ---- An upstream that cannot be reached -------------------------------------
start lost --upstream 127.0.0.1:1
"$request" --port "$port" "${as_u[@]}" /echo x >"$work/out" 2>&1 && fail "no 502"
grep -qF '"status":502' "$work/out" && grep -qF 'upstream 127.0.0.1:1 ' "$work/out" ||
  fail "unreachable upstream: $(cat "$work/out")"
echo "relay: ok"
