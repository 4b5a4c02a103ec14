/* The readers of JSON text against the jsoncpp road: every shape, the
 * library's own and those that must take the fallback, gives the same
 * record, to the byte of its written form; which shapes each fast reader
 * takes; a reply's member read only from strict JSON. Records come from
 * velmora-gen's code for tests/gen/everything.json. */
#include <cctype>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <json/json.h>
#include <velmora/generated.h>

#include "everything.h"

namespace {

using namespace velmora::detail;

using NodeHandle = std::unique_ptr<Node, void (*)(void *)>;

std::string written(Node *node) {
  if (node == nullptr)
    return "null";
  Json::Value out;
  Node_serialize(node, out);
  return Json::writeString(Json::StreamWriterBuilder(), out);
}

/* What jsoncpp's tree of the text gives, and what the text reader gives. */
void expect_same(const std::string &json) {
  Json::Value tree;
  std::unique_ptr<Json::CharReader> parser(
      Json::CharReaderBuilder().newCharReader());
  bool parsed =
      parser->parse(json.data(), json.data() + json.size(), &tree, nullptr);
  NodeHandle slow(parsed ? static_cast<Node *>(Node_deserialize(tree))
                         : nullptr,
                  Node_deleter),
      fast(Node_read(json.data(), json.size()), Node_deleter);
  EXPECT_EQ(written(fast.get()), written(slow.get())) << json;
}

/* The text without white space outside strings, as writers send it. */
std::string compact(const std::string &json) {
  std::string out;
  bool quoted = false;
  for (size_t i = 0; i < json.size(); i++) {
    if (quoted || !isspace(static_cast<unsigned char>(json[i])))
      out += json[i];
    if (quoted && json[i] == '\\' && i + 1 < json.size())
      out += json[++i];
    else if (json[i] == '"')
      quoted = !quoted;
  }
  return out;
}

std::string node(const std::string &properties) {
  return R"({"__type__": "Node", "__properties__": {)" + properties + "}}";
}

const char *const canonical =
    R"("id": {"__type__": "Long", "__value__": "-7"},
    "code": {"__type__": "Long", "__value__": "0x10"},
    "weight": {"__type__": "Double", "__value__": "2.500000"},
    "when": {"__type__": "Time", "__value__": 1700000000.0},
    "day": {"__type__": "Date", "__value__": -86400.5}, "count": -3, "ok": true,
    "name": "n\u00e4me", "address": {"__type__": "IP", "__value__": "192.0.2.1"},
    "secret": {"__type__": "Ciphered", "__value__": "s"},
    "blob": {"__type__": "Blob", "__value__": "AQI="},
    "tags": {"__type__": "List", "__sub_type__": "Unicode", "__elements__": ["a", "b"]},
    "numbers": {"__type__": "List", "__sub_type__": "Integer", "__elements__": [3, -4]},
    "flags": {"__type__": "Dict", "__sub_type__": "Boolean", "__elements__": {"f": false}},
    "grid": {"__type__": "List", "__sub_type__": "List", "__elements__": [
      {"__type__": "List", "__sub_type__": "Long", "__elements__": [
        {"__type__": "Long", "__value__": "1"}]}]},
    "page": {"__elements__": [{"__type__": "Leaf", "__properties__": {"label": "l"}}],
      "__sub_type__": "Leaf", "__total_items__": 9, "__type__": "ResultSet"},
    "child": {"__properties__": {"name": "c"}, "__type__": "Node"})";

/* A Flat as the library writes it (members sorted), and texts one change
 * away from that form, which the one-pass road must leave to the others. */
const char *const flat =
    R"({"__properties__": {"address": {"__type__": "IP", "__value__": "192.0.2.2"},
    "code": {"__type__": "Long", "__value__": "0x10"}, "count": -3,
    "day": {"__type__": "Date", "__value__": -86400.5},
    "id": {"__type__": "Long", "__value__": "-7"}, "name": "f", "ok": true,
    "secret": {"__type__": "Ciphered", "__value__": "s"},
    "weight": {"__type__": "Double", "__value__": "2.5"},
    "when": {"__type__": "Time", "__value__": 1700000000.0}}, "__type__": "Flat"})";

std::vector<std::string> flat_variants() {
  const std::pair<const char *, const char *> changes[] = {
      {"", ""},
      {R"("IP")", R"("Ip")"},
      {R"({"__properties__")", R"({"__propXrties__")"},
      {R"("Long", "__value__": "0x10")", R"("ULong", "__value__": "0x10")"},
      {R"("count": -3,)", ""},
      {R"("count": -3,)", R"("count": -3, "extra": 1,)"},
      {R"("name": "f")", R"("name": null)"},
      {R"("name": "f")", R"("name": "f
")"},
      {R"("-7")", R"("12a")"},
      {R"("-7")", R"("99999999999999999999")"},
      {"-86400.5", "1e5"},
      {"-3", "2147483648"},
      {"true", "1"},
      {R"("0x10")", R"("-1")"},
      {R"("Flat"})", "5}"},
      {R"("Flat"})", R"("Flat", "__type__": "x"})"},
      {R"({"__properties__": {"address")",
       R"({"__properties__": {"zz": 0, "address")"}};
  std::vector<std::string> texts;
  for (const auto &change : changes) {
    std::string text = flat;
    size_t at = text.find(change.first);
    texts.push_back(node(
        "\"flat\": " + text.replace(at, strlen(change.first), change.second)));
  }
  return texts;
}

TEST(TextRead, EveryShapeReadsAsTheTreeDoes) {
  const std::string shapes[] = {
      node(canonical), "\n\t " + node(canonical) + " \r\n",
      node(R"("id": {"__value__": "5", "__type__": "Long"})"),
      // Shapes of the scalars the fast road leaves to the deserializers.
      node(R"("id": {"__type__": "Long", "__value__": 5})"),
      node(R"("id": {"__type__": "Long", "__value__": "\u0035"})"),
      node(R"("id": {"__type__": "Long"})"),
      node(R"("id": {"__value__": "5"})"),
      node(R"("id": {"__type__": "Long", "__value__": "5", "x": 1})"),
      node(R"("id": {"__type__": 3, "__value__": "5"})"),
      node(R"("id": {"__type__": "Long", "__value__": "5", "__value__": "6"})"),
      node(R"("when": {"__type__": "Time", "__value__": "5"})"),
      node(R"("when": {"__type__": "Time", "__value__": 1.5e2})"),
      node(
          R"("when": {"__type__": "Time", "__value__": 123456789012345678901234})"),
      node(R"("count": 2147483648)"), node(R"("count": 3.7)"),
      node(R"("count": "3")"), node(R"("count": 01)"), node(R"("ok": 1)"),
      node(R"("ok": "true")"), node(R"("name": "a\nb\"\\\/\u00e9")"),
      node(R"("name": 5)"), node("\"name\": \"raw\tcontrol\""),
      node(R"("address": {"__type__": "IP", "__value__": null})"),
      node(R"("secret": {"__type__": "Ciphered", "__value__": "a\u0000b"})"),
      // Records: members twice, null, of other kinds, unknown, with escapes.
      node(
          R"("id": {"__type__": "Long", "__value__": "1"}, "id": {"__type__": "Long", "__value__": "2"})"),
      node(R"("id": null, "id": {"__type__": "Long", "__value__": "2"})"),
      node(R"("id": {"__type__": "Long", "__value__": "2"}, "id": null)"),
      node(R"("id": [1], "id": {"__type__": "Long", "__value__": "2"})"),
      node(R"("child": {"__properties__": {"id": [1]}})"),
      node(R"("child": {"__properties__": null})"),
      node(
          R"("child": {"__properties__": {}, "__properties__": {"name": "x"}})"),
      node(R"("child": {"__properties__": {"name": "x"}, "extra": 1})"),
      node(R"("child": {"__type__": "Node"})"),
      node(
          R"("child": {"__properties__": {"name": "x"}, "__type__": "Node", "extra": 1})"),
      node(R"("child": {"__properties__": {"name": "x"}, "__type__": 5})"),
      node(
          R"("child": {"__properties__": {"name": "x"}, "__value__": "Node"})"),
      node(
          R"("child": {"__type__": "Node", "__properties__": {"name": "x"}, "extra": 1})"),
      node(
          R"("id": {"__type__": "Long", "__value__": "5"}, "child": {"__type__": "Node", "__properties__": {"id": {"__type__": "Long", "__value__": "5", "__value__": "6"}}})"),
      node(R"("child": [])"),
      node(R"("later": [1, {"a": null}], "later": "twice", "n\u0061me": "k")"),
      node(R"("x": 1e400)"),
      R"({"__type__": "N\u006fde", "__properties__": {"name": "a"}})",
      R"({"__type__": "Node", "__properties__": {"name": "a"}, "__type__": "x"})",
      R"({"__properties__": {"name": "a"}, "__type__": "Node", "__properties__": {}})",
      R"({"__properties__": {"name": "a"}} trailing)",
      R"({"__properties__": {"name": "a"} /* c */})",
      R"({"__properties__": {"name": "a",}})",
      "\xef\xbb\xbf" + node(R"("name": "bom")"),
      // Containers: sub-types, entries, totals, extra keys.
      node(
          R"("tags": {"__type__": "List", "__sub_type__": "Long", "__elements__": ["a"]})"),
      node(R"("tags": {"__type__": "List", "__elements__": ["a"]})"),
      node(
          R"("tags": {"__type__": "List", "__sub_type__": "Unicode", "__elements__": ["a", 1, null]})"),
      node(
          R"("tags": {"__type__": "List", "__sub_type__": "Unicode", "__elements__": {"a": "b"}})"),
      node(
          R"("tags": {"__type__": "List", "__sub_type__": "Unicode", "__elements__": [], "x": 0})"),
      node(
          R"("numbers": {"__type__": "List", "__sub_type__": "Integer", "__elements__": [1.5, true]})"),
      node(
          R"("page": {"__type__": "ResultSet", "__sub_type__": "Leaf", "__elements__": []})"),
      node(
          R"("page": {"__type__": "ResultSet", "__sub_type__": "Leaf", "__total_items__": "3", "__elements__": []})"),
      node(
          R"("page": {"__type__": "ResultSet", "__sub_type__": "Leaf", "__total_items__": 1, "__elements__": [null]})"),
      node(
          R"("page": {"__type__": "ResultSet", "__sub_type__": "Leaf", "__total_items__": 1, "__elements__": [{"__properties__": {"node": 3}}]})"),
      node(
          R"("flags": {"__type__": "Dict", "__sub_type__": "Boolean", "__elements__": {"f": true, "f": false, "e": 1}})"),
      // Dictionaries: keys in the tree's order or not, entries of other
      // kinds, sub-types the library reads as a prefix.
      node(
          R"("flags": {"__type__": "Dict", "__sub_type__": "Boolean", "__elements__": {"a": true, "ab": false, "b": true, "z": false, "é": true}})"),
      node(
          R"("flags": {"__type__": "Dict", "__sub_type__": "Boolean", "__elements__": {"b": true, "ab": false, "a": true}})"),
      node("\"flags\": {\"__type__\": \"Dict\", \"__sub_type__\": \"Boolean\", "
           "\"__elements__\": {\"\xc3\xa9\": true, \"z\": false}}"),
      node(
          R"("flags": {"__type__": "Dict", "__sub_type__": "Boolean", "__elements__": {"a": true, "\u0062": false}})"),
      node(
          R"("flags": {"__type__": "Dict", "__sub_type__": "Boo", "__elements__": {"a": true}})"),
      node(
          R"("flags": {"__type__": "Dict", "__sub_type__": "Boolean", "__elements__": {"a": null}})"),
      node(
          R"("flags": {"__type__": "Dict", "__sub_type__": "Boolean", "__elements__": []})"),
      node(
          R"("flags": {"__type__": "Dict", "__sub_type__": "Boolean", "__elements__": {}, "x": 0})"),
      node(
          R"("scores": {"__elements__": {"x": {"__type__": "Double", "__value__": "1.5"}, "y": {"__type__": "Double", "__value__": 2}}, "__sub_type__": "Double", "__type__": "Dict"})"),
      // Not JSON, or not all of it.
      "", "{", node(R"("name": "cut)"), node("\"name\": \"a\"") + "}", "[1]",
      "null", std::string(600, '[') + std::string(600, ']'),
      node(std::string("\"deep\": ") + std::string(600, '[') +
           std::string(600, ']'))};
  for (const std::string &json : shapes) {
    expect_same(json);
    expect_same(compact(json));
  }
  for (const std::string &json : flat_variants())
    expect_same(compact(json));
}

/* Three of a Flat's fields, as a one-pass table lists them. */
const CompactField three[] = {
    {R"("address":{"__type__":"IP","__value__":)", compact_ip,
     offsetof(Flat, address)},
    {R"(,"count":)", compact_integer, offsetof(Flat, count)},
    {R"(,"id":{"__type__":"Long","__value__":)", compact_long,
     offsetof(Flat, id)}};

TEST(TextRead, OnlyTheLibrarysOwnShapesTakeTheFastRoad) {
  struct Road {
    FastRead read;
    value_deleter release;
  };
  const Road long_{fast_long, Long_deleter}, date{fast_date, Date_deleter},
      ip{fast_ip, IP_deleter}, text{fast_text, string_deleter},
      integer{fast_integer, Integer_deleter},
      boolean{fast_boolean, Boolean_deleter}, none{fast_none, free},
      flags{[](Cursor &c, void **out) {
              dict_s *(*make)() = [] {
                return dict_new("Boolean", Boolean_deleter, nullptr, nullptr,
                                Boolean_copier);
              };
              return container(c, "Boolean", fast_boolean, make, dict_deleter,
                               out);
            },
            dict_deleter},
      one_pass{[](Cursor &c, void **out) {
                 return compact_record(c, Flat_new, Flat_deleter, three, out)
                            ? Read::done
                            : Read::other;
               },
               Flat_deleter},
      by_member{[](Cursor &c, void **out) {
                  auto keep = [](Cursor &c, std::string_view name, Flat *f) {
                    return unknown(c, name, &f->unknown_members);
                  };
                  return record(c, Flat_new, Flat_deleter, keep, out);
                },
                Flat_deleter},
      texts{[](Cursor &c, void **out) {
              list_s *(*make)() = [] {
                return list_new("Unicode", string_deleter, nullptr, nullptr,
                                nullptr);
              };
              return container(c, "Unicode", fast_text, make, list_del, out);
            },
            list_del};
  const struct {
    Road road;
    const char *json;
    Read expected;
    int depth = 0;
  } cases[] = {
      {one_pass,
       R"({"__properties__":{"address":{"__type__":"IP","__value__":"a"},"count":1,"id":{"__type__":"Long","__value__":"2"}},"__type__":"F"})",
       Read::done},
      {one_pass,
       R"({"__properties__":{"address":{"__type__":"IP","__value__":"a"},"count":1,"id":{"__type__":"Long","__value__":"2"}},"__type__":"F"})",
       Read::done, max_depth - 3},
      {one_pass,
       R"({"__properties__":{"address":{"__type__":"IP","__value__":"a"},"count":1,"id":{"__type__":"Long","__value__":"2"}},"__type__":"F"})",
       Read::other, max_depth - 2},
      {one_pass,
       R"({"__properties__":{"address":{"__type__":"IP","__value__":"a"},"count":1},"__type__":"F"})",
       Read::other},
      {by_member, R"({"__type__":"F","__properties__":{"a":[1]}})", Read::done},
      {by_member, R"({"__properties__":{"a":{}},"__type__":"F"})", Read::done},
      {one_pass,
       R"({"__properties__":{"address":{"__type__":"IP","__value__":"a"},"count":1,"id":{"__type__":"Long","__value__":"2"},"x":0},"__type__":"F"})",
       Read::other},
      {one_pass,
       R"({"__properties__":{"address":{"__type__":"IP","__value__":"a\n"},"count":1,"id":{"__type__":"Long","__value__":"2"}},"__type__":"F"})",
       Read::other},
      {one_pass,
       R"({"__properties__":{"address":{"__type__":"IP","__value__":"a"},"count":1.5,"id":{"__type__":"Long","__value__":"2"}},"__type__":"F"})",
       Read::other},
      {one_pass,
       R"({"__properties__":{"address":{"__type__":"IP","__value__":"a"},"count":1,"id":{"__type__":"Long","__value__":2}},"__type__":"F"})",
       Read::other},
      {one_pass,
       R"({"__properties__":{"address":{"__type__":"IP","__value__":"a"} ,"count":1,"id":{"__type__":"Long","__value__":"2"}},"__type__":"F"})",
       Read::other},
      {one_pass,
       R"({"__type__":"F","__properties__":{"address":{"__type__":"IP","__value__":"a"},"count":1,"id":{"__type__":"Long","__value__":"2"}}})",
       Read::other},
      {one_pass,
       R"({"__properties__":{"address":{"__type__":"IP","__value__":"a"},"count":1,"id":{"__type__":"Long","__value__":"2"}},"__type__":5})",
       Read::other},
      {long_, R"({"__type__":"Long","__value__":"5"})", Read::done},
      {long_, R"( { "__type__" : "Long" , "__value__" : "5" } )", Read::done},
      {long_, R"({"__value__":"5","__type__":"Long"})", Read::done},
      {long_, R"({"__type__":"Long","__value__":5})", Read::other},
      {long_, R"({"__type__":"Long","__value__":"5","x":1})", Read::other},
      {long_, R"({"__type__":"Long","__value__":"\u0035"})", Read::other},
      {long_, R"({"__type__":"Long"})", Read::other},
      {date, R"({"__type__":"Date","__value__":1700000000.0})", Read::done},
      {date, R"({"__type__":"Date","__value__":-0.5})", Read::done},
      {date, R"({"__type__":"Date","__value__":1e5})", Read::other},
      {date, R"({"__type__":"Date","__value__":"5"})", Read::other},
      {ip, R"({"__type__":"IP","__value__":"192.0.2.1"})", Read::done},
      {ip, R"({"__type__":"IP","__value__":null})", Read::other},
      {text, R"("plain")", Read::done},
      {text, R"("a\nb")", Read::other},
      {text, "5", Read::other},
      {integer, "-2147483648", Read::done},
      {integer, "2147483648", Read::other},
      {integer, "1.0", Read::other},
      {boolean, "false", Read::done},
      {boolean, "1", Read::other},
      {none, "{}", Read::other},
      {texts,
       R"({"__type__":"List","__sub_type__":"Unicode","__elements__":["a","b"]})",
       Read::done},
      {texts,
       R"({"__elements__":[],"__sub_type__":"Unicode","__type__":"List"})",
       Read::done},
      {texts,
       R"({"__type__":"List","__sub_type__":"Unicode","__elements__":[]})",
       Read::done, max_depth - 2},
      {texts,
       R"({"__type__":"List","__sub_type__":"Unicode","__elements__":[]})",
       Read::broken, max_depth - 1},
      {texts,
       R"({"__type__":"List","__sub_type__":"Long","__elements__":["a"]})",
       Read::other},
      {texts, R"({"__type__":"List","__elements__":["a"]})", Read::other},
      {texts,
       R"({"__type__":"List","__sub_type__":"Unicode","__elements__":["a",1]})",
       Read::other},
      {texts,
       R"({"__type__":"List","__sub_type__":"Unicode","__elements__":[null]})",
       Read::other},
      {texts,
       R"({"__type__":"List","__sub_type__":"Unicode","__elements__":[],"x":0})",
       Read::other},
      {flags,
       R"({"__elements__":{"a":true,"ab":false,"z":true,"é":false},"__sub_type__":"Boolean","__type__":"Dict"})",
       Read::done},
      {flags,
       R"({"__type__":"Dict","__sub_type__":"Boolean","__elements__":{}})",
       Read::done},
      {flags,
       R"({"__type__":"Dict","__sub_type__":"Boolean","__elements__":{"ab":true,"a":false}})",
       Read::other},
      {flags,
       R"({"__type__":"Dict","__sub_type__":"Boolean","__elements__":{"é":true,"z":false}})",
       Read::other},
      {flags,
       R"({"__type__":"Dict","__sub_type__":"Boolean","__elements__":{"a":true,"a":false}})",
       Read::other},
      {flags,
       R"({"__type__":"Dict","__sub_type__":"Boolean","__elements__":{"a":1}})",
       Read::other},
      {flags,
       R"({"__type__":"Dict","__sub_type__":"Boolean","__elements__":["a"]})",
       Read::other}};
  for (const auto &c : cases) {
    std::string json = c.json;
    Cursor cursor{json.data(), json.data() + json.size(), c.depth};
    void *value = nullptr;
    EXPECT_EQ(c.road.read(cursor, &value), c.expected) << json;
    EXPECT_EQ(value != nullptr, c.expected == Read::done) << json;
    /* A value read closes all it opened. */
    EXPECT_TRUE(c.expected != Read::done || cursor.depth == c.depth) << json;
    c.road.release(value);
  }
}

/* The fast road takes a reply only when all of it is strict JSON; else
 * jsoncpp's tree of the whole reply decides, and a reply without the
 * member's value gives -4. */
TEST(TextRead, AReplyIsReadFastOnlyWhenAllOfItIsStrictJson) {
  const struct {
    const char *reply, *fast, *read; /* null: gives up, or -4 */
  } cases[] = {
      {R"({"m": "v"})", "v", "v"},
      {R"( {"a": [1, {"b": null}], "m": "w", "z": 1.5} )", "w", "w"},
      {R"({"m": "v\n"})", "v\n", "v\n"},
      {R"({"m": "v", "m": "w"})", nullptr, "w"},
      {R"({"m": null})", nullptr, nullptr},
      {R"({"a": 1})", nullptr, nullptr},
      {R"({"m": "v"} x)", nullptr, "v"},
      {R"({"m": "v", "a": [1,]})", "v", "v"}, /* jsoncpp takes the comma */
      {R"({"a": tru, "m": "v"})", nullptr, nullptr},
      {"{\"m\": \"v\" // c\n}", nullptr, "v"},
      {R"(["m"])", nullptr, nullptr},
      {R"({"m": 5})", "5", "5"},
      {R"({"m\u0000": "v"})", nullptr, nullptr}};
  for (const auto &c : cases) {
    void *value = nullptr;
    const std::string reply = c.reply;
    const Read read = read_member(reply.data(), reply.size(), "m", fast_text,
                                  string_deserialize, &value);
    EXPECT_EQ(read == Read::done ? static_cast<char *>(value) : "(gave up)",
              std::string(c.fast != nullptr ? c.fast : "(gave up)"))
        << c.reply;
    string_deleter(value);
    char *got = nullptr;
    const int code = read_reply(reply, "m", fast_text, string_deserialize,
                                string_deleter, &got);
    EXPECT_EQ(code == 0 ? got : "-4", std::string(c.read ? c.read : "-4"))
        << c.reply;
    string_deleter(got);
    EXPECT_EQ(read_reply<char>(reply, "m", fast_text, string_deserialize,
                               string_deleter, nullptr),
              code);
  }
}

} // namespace
