#!/usr/bin/env bash
# Bad schemas and the one line that refuses each (exit 2, nothing written);
# then --infer on a reply (a member named "" left out), with and without
# a conflicting field, its schema generated into a directory that does not
# exist yet; then --infer
# on recorded exchanges: operations, their names, and conflicts. Big
# schemas as several files.
# Usage: schemas.sh VELMORA_GEN CMAKE VELMORA_GENERATE_CMAKE
set -euo pipefail
gen=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0
while IFS='|' read -r schema message; do
  printf '%s' "$schema" >"$work/s.json"
  rm -f "$work/s.h" "$work/s.cpp"
  status=0
  "$gen" --output-dir "$work" "$work/s.json" 2>"$work/err" || status=$?
  if [ "$status" != 2 ] || [ "$(cat "$work/err")" != "velmora-gen: $work/s.json: $message" ] ||
    [ -e "$work/s.h" ] || [ -e "$work/s.cpp" ]; then
    echo "FAIL: $schema: exit $status, $(cat "$work/err")"
    failed=1
  fi
done <<'TABLE'
{"records": |not JSON: Line 1, Column 13 Syntax error: value, object or array expected.
[]|the schema must be a JSON object
{"records": {"Item": {"id": "Lnog"}}}|record Item, field id: unknown type "Lnog": did you mean "Long"?
{"records": {"Item": {"id": "String"}}}|record Item, field id: unknown type "String": did you mean "Unicode"?
{"records": {"Item": {"id": "Dict<long>"}}}|record Item, field id: unknown type "Dict<long>": did you mean "Dict<Long>"?
{"records": {"Item": {"id": "List<List<item>>"}}}|record Item, field id: unknown type "List<List<item>>": did you mean "List<List<Item>>"?
{"records": {"Item": {"id": "List<map>"}}}|record Item, field id: unknown type "List<map>": did you mean "List<Dict<T>>"?
{"records": {"Item": {"id": "List<Item"}}}|record Item, field id: unknown type "List<Item": a type is one of Long, ULong, Double, Time, Date, Integer, Boolean, Unicode, IP, Ciphered, Blob, Ordering, ListInfo, List<T>, Dict<T>, ResultSet<T> or a record of the schema
{"records": {"Item": {"id": 5}}}|record Item, field id: the type must be a string
{"records": {"": {}}}|record : a name must not be empty
{"records": {"Item": {"": "Long"}}}|record Item, field : a name must not be empty
{"records": {"ListInfo": {}}}|record ListInfo: "ListInfo" is a type of the library
{"records": {"List<Item>": {}}}|record List<Item>: "List<Item>" is a type of the library
{"records": {"Item": {"a": "Long", "a": "Long"}}}|not JSON: Line 1, Column 36 Duplicate key: 'a'
{"records": {"Item": {"a": {"type": "Long", "size": 3}}}}|record Item, field a: unknown member "size"
{"records": {"Item": {"a": {"type": "Long", "c_name": "class"}}}}|record Item, field a: c_name "class" is not free
{"records": {"Item": {"a": {"type": "Long", "c_name": "x"}, "b": {"type": "Long", "c_name": "x"}}}}|record Item, field b: c_name "x" is not free
{"records": {"Item": {"fields": {}, "c_name": "_x"}}}|record Item: c_name "_x" is not free
{"records": {"Item": {"fields": {}, "c_name": "List"}}}|record Item: c_name "List" is not free
{"records": {"Item": {"a": {"type": "Long", "c_name": "errno"}}}}|record Item, field a: c_name "errno" is not free
{"records": {"Item": {"fields": {}, "c_name": "time"}}}|record Item: c_name "time" is not free
{"operations": {"time": {"path": "/x"}}}|operation time: "time" is a name of the C library or a macro
{"operations": {"get": {"result": "Long"}}}|operation get, field path: a path (printable text without quotes) is needed
{"operations": {"get-x": {"path": "/x"}}}|operation get-x: "get-x" is not a C identifier
{"operations": {"send_request": {"path": "/x"}}}|operation send_request: "send_request" is a name of the library
{"operations": {"velmora": {"path": "/x"}}}|operation velmora: "velmora" is a name of the generated code
{"records": {"Item": {}}, "operations": {"Item_new": {"path": "/x"}}}|operation Item_new: "Item_new" is taken by a record or a call
{"records": {"Item": {}}, "operations": {"ls": {"path": "/x", "arguments": {"q": "ListInfo"}, "result": "ResultSet<Item>"}, "ls_each": {"path": "/y"}}}|operation ls, its walk of pages: "ls_each" is taken by a record or a call
{"operations": {"get": {"path": "/x", "arguments": {"a": {"type": "Long", "c_name": "context"}}}}}|operation get, argument a: c_name "context" is not free
{"operations": {"get": {"path": "/x", "arguments": {"a": "Id"}}}}|operation get, arguments, field a: unknown type "Id": a type is one of Long, ULong, Double, Time, Date, Integer, Boolean, Unicode, IP, Ciphered, Blob, Ordering, ListInfo, List<T>, Dict<T>, ResultSet<T> or a record of the schema
TABLE

# Big schemas: R records of F fields (as {"fields": ...} when W is 1,
# under names CMake lists would cut) and O operations make as many source
# files as velmora_generate counts (a file per 2000 of weight: a record
# 40, a field 1, an operation 6; at most one a record and operation).
printf 'include(%s)\n_velmora_generate_parts(${SCHEMA} n)\nmessage(NOTICE ${n})' "$3" >"$work/count.cmake"
while read -r r f o w files; do
  awk -v r="$r" -v f="$f" -v o="$o" -v w="$w" 'BEGIN { printf "{\"records\": {"
    for (i = 0; i < r; i++) {
      printf "%s\"R%d;\\\"[\": {%s", i ? "," : "", i, w ? "\"doc\": \"\", \"fields\": {" : ""
      for (j = 0; j < f; j++) printf "%s\"f%d\": \"Long\"", j ? "," : "", j
      printf w ? "}}" : "}" }
    printf "}, \"operations\": {"; for (i = 0; i < o; i++) printf "%s\"op%d\": {\"path\": \"/x\"}", i ? "," : "", i
    printf "}}" }' >"$work/big.json"
  rm -rf "$work/big" && "$gen" --output-dir "$work/big" "$work/big.json"
  got="$(ls "$work/big"/*.cpp | wc -l) $("$2" -DSCHEMA="$work/big.json" -P "$work/count.cmake" 2>&1)"
  [ "$got" = "$files $files" ] || { echo "FAIL: big $r $f $o $w: $got"; failed=1; }
done <<'TABLE'
48 1 0 0 1
0 0 333 0 1
0 0 334 0 2
1 2001 0 0 1
2 1000 0 1 2
49 1 0 0 2
TABLE
[[ $("$2" -DSCHEMA="$work/none.json" -P "$work/count.cmake" 2>&1 || true) == *"not there yet: its source is one file (PARTS n splits it)"$'\n'1 ]] ||
  { echo "FAIL: a schema not there yet"; failed=1; }
# The last, 49 records: a second run rewrites nothing, --parts N writes N files.
for args in "|big.cpp big.h big_2.cpp" "--parts 1|big.cpp big.h" "--parts 3|big.cpp big.h big_2.cpp big_3.cpp"; do
  rm -rf "$work/big" && "$gen" ${args%|*} --output-dir "$work/big" "$work/big.json"
  before=$(stat -c '%n %y' "$work"/big/*)
  "$gen" ${args%|*} --output-dir "$work/big" "$work/big.json"
  [ "$(cd "$work/big" && echo *)" = "${args#*|}" ] && [ "$(stat -c '%n %y' "$work"/big/*)" = "$before" ] ||
    { echo "FAIL: big $args: $(ls "$work/big")"; failed=1; }
done
# Fewer files remove velmora-gen's own of a larger count, not another's;
# another schema is not written over a part. The name is of the length at
# which only a part's banner wraps before it.
base=the_name_whose_banner_wraps_only_in_a_part
cp "$work/big.json" "$work/$base.json" && printf '{}' >"$work/${base}_2.json"
"$gen" --parts 3 --output-dir "$work/long" "$work/$base.json"
echo "int mine;" >"$work/long/${base}_4.cpp"
"$gen" --output-dir "$work/long" "$work/$base.json"
status=0
"$gen" --output-dir "$work/long" "$work/${base}_2.json" 2>/dev/null || status=$?
[ "$status" = 1 ] && [ "$(cd "$work/long" && echo *)" = "$base.cpp $base.h ${base}_2.cpp ${base}_4.cpp" ] ||
  { echo "FAIL: stale or taken files: $status, $(ls "$work/long")"; failed=1; }
# The suite's parts.json as three files, each with records calling the others'.
"$gen" --parts 3 --output-dir "$work/parts" "$(dirname "$0")/parts.json"
for f in parts parts_2 parts_3; do
  grep -q '_new(void) {' "$work/parts/$f.cpp" || { echo "FAIL: no record in $f.cpp"; failed=1; }
done
for count in 0 x -2 2x; do
  status=0
  "$gen" --parts "$count" --output-dir "$work/big" "$work/big.json" 2>/dev/null || status=$?
  [ "$status" = 2 ] || { echo "FAIL: --parts $count: exit $status"; failed=1; }
done

"$gen" --help | grep -q '^usage: velmora-gen' && "$gen" --help | grep -q 'gets a C name from its wire' ||
  { echo "FAIL: --help"; failed=1; }
# A wire name that no C name keeps is named in the comments.
"$gen" --output-dir "$work/names" "$(dirname "$0")/names.json" &&
  grep -qF 'Wire name: "x-request-id".' "$work/names/names.h" || { echo "FAIL: wire names"; failed=1; }

# Nesting past the reader's limit is refused (a schema) or skipped (a
# reply), not a crash.
printf '%0.s[' $(seq 2000) >"$work/deep.json"
for args in "--output-dir $work|2" "--infer|0"; do
  status=0
  "$gen" ${args%|*} "$work/deep.json" >/dev/null 2>"$work/err" || status=$?
  [ "$status" = "${args#*|}" ] && grep -q 'deep.json: not JSON: Exceeded stackLimit' "$work/err" ||
    { echo "FAIL: deep $args: exit $status, $(cat "$work/err")"; failed=1; }
done

# A name that is not UTF-8, byte by byte.
for name in '\200\200' 'a\300\200' '\343\201'; do
  printf "{\"records\": {\"Item\": {\"$name\": \"Long\"}}}" >"$work/u.json"
  status=0
  "$gen" --output-dir "$work" "$work/u.json" 2>"$work/err" || status=$?
  [ "$status" = 2 ] && grep -q 'is not UTF-8$' "$work/err" ||
    { echo "FAIL: $name: exit $status, $(cat "$work/err")"; failed=1; }
done

echo '{"result": {"__type__": "ResultSet", "__sub_type__": "Item", "__elements__": [
  {"__type__": "Item", "__properties__": {"id": {"__type__": "Long", "__value__": "1"},
   "name": "a", "tags": {"__type__": "List", "__sub_type__": "Unicode", "__elements__": []}}},
  {"__type__": "Item", "__properties__": {"": 1, "name": null, "part": {"__type__": "pärt\"",
   "__properties__": {"x-ok": true}}}}]}}' >"$work/reply.json"
"$gen" --infer "$work/reply.json" >"$work/inferred.json"
[ "$(tr -d ' \n' <"$work/inferred.json")" = \
  '{"records":{"Item":{"id":"Long","name":"Unicode","tags":"List<Unicode>","part":"pärt\""},"pärt\"":{"x-ok":"Boolean"}}}' ] &&
  "$gen" --output-dir "$work/made/here" "$work/inferred.json" && [ -s "$work/made/here/inferred.h" ] ||
  { echo "FAIL: inferred $(cat "$work/inferred.json")"; failed=1; }
sed -i 's/"name": null/"name": 3/' "$work/reply.json"
status=0
"$gen" --infer "$work/reply.json" >/dev/null 2>"$work/err" || status=$?
[ "$status" = 2 ] &&
  [ "$(cat "$work/err")" = "velmora-gen: record Item, field name: seen as Unicode and as Integer" ] ||
  { echo "FAIL: conflict: exit $status, $(cat "$work/err")"; failed=1; }

# Recordings: two exchanges (or none) in a directory, and the schema inferred from
# them (white space dropped) or the conflict reported.
long='{"__type__":"Long","__value__":"1"}'
item='{"__type__":"Item","__properties__":{"id":'$long'}}'
while IFS='|' read -r first second expected; do
  rm -rf "$work/rec" && mkdir "$work/rec"
  [ -z "$first" ] || printf '%s' "$first" >"$work/rec/000001.json"
  [ -z "$second" ] || printf '%s' "$second" >"$work/rec/000002.json"
  status=0
  "$gen" --infer "$work/rec" >"$work/out" 2>&1 || status=$?
  got=$(tr -d ' \n' <"$work/out")
  want=$(tr -d ' ' <<<"$expected")
  [ "$got" = "$want" ] && [ "$status" = "$([[ $want == velmora-gen:[!w]* ]] && echo 2 || echo 0)" ] ||
    { echo "FAIL: $first $second: exit $status, $got"; failed=1; }
done <<TABLE
{"recording":1,"path":"/items/get","request":{"id":$long},"status":200,"reply":{"result":$item}}|{"recording":1,"path":"/items/get","request":{"id":"1","x":null},"status":401,"reply":{"a":$long}}|velmora-gen: operation items_get, argument id: seen as Long and as Unicode
{"recording":1,"path":"/items/get","status":200,"reply":{"result":$item}}|{"recording":1,"path":"/items/get","status":200,"reply":{"result":3}}|velmora-gen: operation items_get, result: seen as Item and as Integer
{"recording":1,"path":"/items/get","status":200,"reply":{"result":$item}}|{"recording":1,"path":"/items/get","status":200,"reply":{"item":$item}}|velmora-gen: operation items_get, result_member: seen as result and as item
{"recording":1,"path":"/items/list","request":{"q":null},"status":500,"reply":{"result":3}}|{"recording":1,"path":"/items-list","request":{"q":"a"},"status":200,"reply":{"n":null,"more":true}}|{"records":{},"operations":{"items_list":{"path":"/items/list","arguments":{}},"items_list_2":{"path":"/items-list","arguments":{"q":"Unicode"},"result":"Boolean","result_member":"more"}}}
{"recording":1,"path":"/class","status":200,"reply":{"n":null,"total":2,"result":$item}}|{"recording":1,"path":"/2fa/x","request":{"class":$item},"status":200,"reply":{"list":{"__type__":"List","__sub_type__":"Long","__elements__":[]}}}|{"records":{"Item":{"id":"Long"}},"operations":{"class_":{"path":"/class","arguments":{},"result":"Item"},"n2fa_x":{"path":"/2fa/x","arguments":{"class":"Item"},"result":"List<Long>","result_member":"list"}}}
{"recording":1,"path":"/Item_new","status":200,"reply":{"result":$item}}|{"recording":1,"path":"/item/getId","request":{"x":"a"},"status":200,"reply":{"result":$long}}|{"records":{"Item":{"id":"Long"}},"operations":{"Item_new_2":{"path":"/Item_new","arguments":{},"result":"Item"},"item_getId_2":{"path":"/item/getId","arguments":{"x":"Unicode"},"result":"Long"}}}
{"result":{"__type__":"Part","__properties__":{"x":1}}}|{"recording":1,"path":"/p","request":{"info":{"__type__":"ListInfo","__properties__":{}}},"status":200,"reply":{"result":{"__type__":"Part","__properties__":{"x":"s"}}}}|velmora-gen: record Part, field x: seen as Integer and as Unicode
{"recording":1,"path":"/n","request":{"big":3000000000},"status":200,"reply":{"result":{"__type__":"I","__properties__":{"n":1}}}}|{"recording":1,"path":"/n","status":200,"reply":{"result":{"__type__":"I","__properties__":{"n":2.5}}}}|velmora-gen: operation n, argument big: 3000000000 is no Integer (a bare number is a 32-bit integer)velmora-gen: record I, field n: 2.5 is no Integer (a bare number is a 32-bit integer)
{"recording":1,"path":"/r","status":200,"reply":{"result":1}}|{"recording":1,"path":"/r","status":200,"reply":{"result":2.5}}|velmora-gen: operation r, result: 2.5 is no Integer (a bare number is a 32-bit integer)
{"recording":1,"path":"/r","status":200,"reply":{"result":3000000000}}|{"recording":1,"path":"/s","status":200,"reply":{"n":2.5,"more":true}}|velmora-gen: operation r, result: 3000000000 is no Integer (a bare number is a 32-bit integer)
||velmora-gen: warning: nothing to infer from: no recording and no typed value in the input{"records":{}}
{"a":1}|[1,]|velmora-gen: warning: skipped $work/rec/000001.json: no recording and no typed valuevelmora-gen: warning: skipped $work/rec/000002.json: not JSON: Line 1, Column 4 Syntax error: value, object or array expected.velmora-gen: warning: nothing to infer from: no recording and no typed value in the input{"records":{}}
TABLE
# A named input that cannot be read fails with the reason.
while IFS='|' read -r args reason; do
  status=0
  eval "\"\$gen\" $args" 2>"$work/err" >/dev/null || status=$?
  [ "$status" = 2 ] && [ "$(cat "$work/err")" = "velmora-gen: ${args##* }: cannot be read: $reason" ] ||
    { echo "FAIL: $args: exit $status, $(cat "$work/err")"; failed=1; }
done <<TABLE
--infer $work/missing.json|No such file or directory
$work/missing.json|No such file or directory
$work|it is a directory
TABLE
exit $failed
