/* Generated code for a schema of wire names that are no C identifiers,
 * keywords, the library's and the call's own names: read, written, copied
 * and sent exactly as named, members the schema does not know kept. */
#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <json/json.h>

#include "devserver_process.h"
#include "names.h"

namespace {

using ItemHandle = std::unique_ptr<Item, void (*)(void *)>;

Json::Value parse(const std::string &json) {
  Json::Value value;
  std::istringstream(json) >> value;
  return value;
}

Json::Value written(Item *item) {
  Json::Value out;
  Item_serialize(item, out);
  return out;
}

ItemHandle read(const Json::Value &in) {
  return ItemHandle(static_cast<Item *>(Item_deserialize(in)), Item_deleter);
}

/* Every field of Item under its wire name, in the form the library writes,
 * with members no schema names at the top and two levels down. */
const char *const fixture = R"({"__type__": "Item", "__properties__": {
  "id": {"__type__": "Long", "__value__": "-7"}, "Item": "i", "class": {"__type__": "Long", "__value__": "1"},
  "default": "d", "new": 2, "delete": true, "operator": {"__type__": "Double", "__value__": "0.500000"},
  "this": {"__type__": "Item", "__properties__": {"name": "inner", "added later": [1, {"k": null}],
    "x-record": {"__type__": "x-record", "__properties__": {"count": 4, "since v2": {"deep": true},
      "list": {"__type__": "List", "__sub_type__": "x-record", "__elements__": []}}}}},
  "x-request-id": "r-1", "x_request_id": "r_1", "display name": "D", "2fa": false, "naïve": "n",
  "__meta": {"__type__": "Dict", "__sub_type__": "Unicode", "__elements__": {"k": "v"}},
  "Date": {"__type__": "Date", "__value__": 86400.0}, "Time": {"__type__": "Time", "__value__": 5.0},
  "IP": {"__type__": "IP", "__value__": "192.0.2.1"}, "Blob": {"__type__": "Blob", "__value__": "YWI="},
  "Long": {"__type__": "Long", "__value__": "9"}, "usage": "u", "reader": "r", "truncate": "t",
  "value": {"__type__": "Long", "__value__": "18446744073709551615"}, "self": "s", "name": "a", "Name": "A",
  "unknown_members": "not the record's own", "fields": "f", "klass": {"__type__": "Long", "__value__": "3"},
  "x-record": {"__type__": "x-record", "__properties__": {"item": {"__type__": "naïve", "__properties__": {
    "résumé": "cv", "-": "dash", "items": {"__type__": "ResultSet", "__sub_type__": "Item",
      "__total_items__": 1, "__elements__": [{"__type__": "Item", "__properties__": {"id": {"__type__": "Long", "__value__": "1"}}}]}}}}},
  "added-later": {"__type__": "Unknown", "__value__": "kept"}, "": 0}})";

TEST(GeneratedNames, EveryWireNameAndUnknownMemberRoundTrips) {
  const Json::Value in = parse(fixture);
  ItemHandle item = read(in);
  ASSERT_NE(item, nullptr);
  EXPECT_EQ(written(item.get()), in);
  void *copy = nullptr;
  Item_copier(&copy, item.get());
  ItemHandle copied(static_cast<Item *>(copy), Item_deleter);
  item.reset();
  EXPECT_EQ(written(copied.get()), in);

  const Json::Value *unknown = item_unknownMembers(copied.get());
  ASSERT_NE(unknown, nullptr);
  EXPECT_EQ(unknown->getMemberNames(),
            (std::vector<std::string>{"", "added-later"}));
  EXPECT_STREQ(item_getUnknown_members_(copied.get()), "not the record's own");
  EXPECT_STREQ(item_getX_request_id(copied.get()), "r-1");
  EXPECT_STREQ(item_getX_request_id_2(copied.get()), "r_1");
  EXPECT_STREQ(item_getName_2(copied.get()), "A");
  EXPECT_STREQ(
      na_ve_getR_sum(x_record_getItem(item_getX_record_(copied.get()))), "cv");
  int64_t klass = 0;
  EXPECT_EQ(item_getKlass_given(copied.get(), &klass), 1);
  EXPECT_EQ(klass, 3);
  EXPECT_EQ(item_unknownMembers(nullptr), nullptr);
}

TEST(GeneratedNames, MembersOfEveryWrongKindGiveNull) {
  const char *const members[] = {
      R"("class": "1")",
      R"("class": {"__value__": []})",
      R"("new": "2")",
      R"("delete": [])",
      R"("operator": 0.5)",
      R"("this": 3)",
      R"("2fa": {})",
      R"("naïve": {})",
      R"("__meta": [1])",
      R"("Date": "x")",
      R"("IP": [])",
      R"("Blob": 5)",
      R"("value": true)",
      R"("x-record": "x")",
      R"("x-record": {"__properties__": {"list": {"__elements__": [1]}}})",
      R"("x-record": {"__properties__": {"item": {"__properties__": {"-": {}}}}})"};
  for (const char *member : members) {
    std::string json =
        std::string(R"({"__properties__": {"kept": 1, )") + member + "}}";
    EXPECT_EQ(read(parse(json)), nullptr) << json;
  }
  for (const char *properties : {"3", "[]", "\"x\"", "true"})
    EXPECT_EQ(
        read(parse(std::string(R"({"__properties__": )") + properties + "}")),
        nullptr)
        << properties;
  EXPECT_EQ(read(parse("[1]")), nullptr);
}

using Echo = int (*)(client_context_s *, const char *, const char *,
                     const char *, const char *, const char *, const char *,
                     const char *, const char *, const char *, const char *,
                     const char *, char **);

TEST(GeneratedNames, CallsSendEveryArgumentUnderItsWireName) {
  char dir[] = "/tmp/velmora-names-XXXXXX";
  ASSERT_NE(mkdtemp(dir), nullptr);
  const std::string recorded = std::string(dir) + "/000001.json";
  DevserverProcess server(VELMORA_DEVSERVER,
                          {"--user", "u", "--password", "pw", "--record", dir});
  ASSERT_NE(server.port(), 0);
  std::unique_ptr<client_context_s, void (*)(client_context_s *)> context(
      client_context_new(), client_context_free);
  client_context_set_port(context.get(), server.port());
  client_context_set_user(context.get(), "u");
  client_context_set_password(context.get(), "pw");
  /* Each argument's value is its wire name; each call reads one back. */
  const char *const wires[] = {"result",  "code",    "body",  "reply",
                               "context", "request", "class", "x-request-id",
                               "2fa",     "naïve",   "Item"};
  const Echo calls[] = {echo_result, echo_code,         echo_body,
                        echo_reply,  echo_context,      echo_request,
                        echo_class,  echo_x_request_id, echo_2fa,
                        echo_naive,  echo_Item};
  for (size_t i = 0; i < std::size(calls); i++) {
    char *back = nullptr;
    EXPECT_EQ(calls[i](context.get(), wires[0], wires[1], wires[2], wires[3],
                       wires[4], wires[5], wires[6], wires[7], wires[8],
                       wires[9], wires[10], &back),
              0);
    EXPECT_STREQ(back, wires[i]);
    free(back);
  }
  /* The first call's body holds the arguments and nothing else. */
  std::ifstream file(recorded);
  std::stringstream text;
  text << file.rdbuf();
  std::vector<std::string> expected(std::begin(wires), std::end(wires));
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(parse(text.str())["request"].getMemberNames(), expected);
  std::filesystem::remove_all(dir);
  ItemHandle sent = read(parse(fixture)), back(nullptr, Item_deleter);
  Item *got = nullptr;
  int32_t number = 5;
  ASSERT_EQ(item_echo(context.get(), sent.get(), &number, &got), 0);
  back.reset(got);
  EXPECT_EQ(written(back.get()), parse(fixture));
}

} // namespace
