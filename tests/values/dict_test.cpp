#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "capture_stdout.h"
#include "container_support.h"
#include "velmora/values.h"

namespace {

dict_s *integer_dict() {
  return dict_new("Integer", Integer_deleter, nullptr, nullptr, Integer_copier);
}

dict_s *text_dict() {
  return dict_new("Unicode", string_deleter, string_deserialize, nullptr,
                  text_copier());
}

dict_entry_s *head(dict_s *dict) {
  return reinterpret_cast<dict_entry_s *>(dict);
}

int32_t integer_of(dict_s *dict, const char *key) {
  return static_cast<Integer *>(dict_get(dict, key))->value;
}

void add_integer(dict_s *dict, const char *key, int32_t value) {
  dict_add(dict, key, &value);
}

std::vector<std::string> keys_of(dict_s *dict) {
  char **keys = nullptr;
  int32_t count = -1;
  dict_keys(dict, &keys, &count);
  std::vector<std::string> out(keys, keys + count);
  free(keys);
  return out;
}

/* Walks the ring both ways and checks that every link agrees. */
void expect_ring(dict_s *dict, const std::vector<std::string> &keys) {
  std::vector<std::string> forward, backward;
  dict_entry_s *previous = head(dict);
  for (dict_entry_s *e = dict->first; e != head(dict); e = e->next) {
    EXPECT_EQ(e->prev, previous);
    forward.push_back(e->key);
    previous = e;
  }
  EXPECT_EQ(dict->last, previous);
  for (dict_entry_s *e = dict->last; e != head(dict); e = e->prev)
    backward.insert(backward.begin(), e->key);
  EXPECT_EQ(forward, keys);
  EXPECT_EQ(backward, keys);
  EXPECT_EQ(dict->nb_elements, static_cast<int32_t>(keys.size()));
}

std::string serialized(dict_s *dict) {
  Json::Value out;
  EXPECT_EQ(dict_serialize(dict, out), nullptr);
  return render(out);
}

/* ---- Lookup and removal ----------------------------------------------- */

TEST(DictLookup, NewDictionaryIsARingOfTheRecordAlone) {
  dict_s *dict = integer_dict();
  EXPECT_EQ(dict->first, head(dict));
  EXPECT_EQ(dict->last, head(dict));
  EXPECT_TRUE(keys_of(dict).empty());
  EXPECT_EQ(dict_get(dict, "a"), nullptr);
  EXPECT_EQ(has_key(dict, "a"), 0);
  EXPECT_EQ(dict_remove(dict, "a"), -1);
  EXPECT_STREQ(dict->sub_type, "Integer");
  dict_free(dict);
}

TEST(DictLookup, KeysInInsertionOrderAndExactMatch) {
  dict_s *dict = integer_dict();
  add_integer(dict, "b", 2);
  add_integer(dict, "a", 1);
  add_integer(dict, "ab", 3);
  EXPECT_EQ(keys_of(dict), (std::vector<std::string>{"b", "a", "ab"}));
  EXPECT_EQ(integer_of(dict, "ab"), 3);
  EXPECT_EQ(has_key(dict, "A"), 0);
  EXPECT_EQ(has_key(dict, ""), 0);
  EXPECT_EQ(dict_get(dict, "abc"), nullptr);

  void **values = dict_values(dict);
  EXPECT_EQ(static_cast<Integer *>(values[0])->value, 2);
  EXPECT_EQ(static_cast<Integer *>(values[2])->value, 3);
  EXPECT_EQ(values[1], dict_get(dict, "a")); // lent, not copied
  free(values);

  char **keys = nullptr;
  int32_t count = 0;
  dict_keys(dict, &keys, &count);
  EXPECT_EQ(keys[0], dict->first->key); // the entries' own texts
  free(keys);
  dict_free(dict);
}

TEST(DictLookup, DuplicateKeysFoundOldestFirst) {
  dict_s *dict = integer_dict();
  add_integer(dict, "k", 1);
  add_integer(dict, "other", 9);
  add_integer(dict, "k", 2);
  EXPECT_EQ(dict->nb_elements, 3);
  EXPECT_EQ(integer_of(dict, "k"), 1);
  EXPECT_EQ(
      serialized(dict),
      R"({"__elements__":{"k":1,"other":9},"__sub_type__":"Integer","__type__":"Dict"})");

  void *slot = nullptr;
  dict_copier(&slot, dict);
  dict_s *copy = static_cast<dict_s *>(slot);
  expect_ring(copy, {"k", "other", "k"});
  EXPECT_EQ(integer_of(copy, "k"), 1);

  EXPECT_EQ(dict_remove(dict, "k"), 0);
  expect_ring(dict, {"other", "k"});
  EXPECT_EQ(integer_of(dict, "k"), 2);
  EXPECT_EQ(dict_remove(dict, "k"), 0);
  EXPECT_EQ(dict_remove(dict, "k"), -1);
  EXPECT_EQ(has_key(dict, "k"), 0);
  expect_ring(dict, {"other"});
  dict_free(copy);
  dict_free(dict);
}

TEST(DictLookup, RemovalAnywhereKeepsTheRing) {
  struct Case {
    const char *removed;
    std::vector<std::string> left;
  };
  const Case cases[] = {
      {"a", {"b", "c"}}, {"b", {"a", "c"}}, {"c", {"a", "b"}}};
  for (const Case &c : cases) {
    dict_s *dict = integer_dict();
    for (const char *key : {"a", "b", "c"})
      add_integer(dict, key, 0);
    EXPECT_EQ(dict_remove(dict, c.removed), 0);
    expect_ring(dict, c.left);
    add_integer(dict, "d", 4);
    std::vector<std::string> grown = c.left;
    grown.push_back("d");
    expect_ring(dict, grown);
    dict_free(dict);
  }
}

TEST(DictLookup, RemovingTheOnlyEntryEmptiesTheRing) {
  dict_s *dict = integer_dict();
  add_integer(dict, "only", 1);
  EXPECT_EQ(dict_remove(dict, "only"), 0);
  EXPECT_EQ(dict->first, head(dict));
  EXPECT_EQ(dict->last, head(dict));
  EXPECT_EQ(dict->nb_elements, 0);
  EXPECT_EQ(dict_remove(dict, "only"), -1);

  add_integer(dict, "again", 2);
  expect_ring(dict, {"again"});
  EXPECT_EQ(integer_of(dict, "again"), 2);
  dict_free(dict);
}

TEST(DictLookup, NullKeyAddsNothingAndFindsNothing) {
  dict_s *dict = integer_dict();
  int32_t value = 1;
  dict_add(dict, nullptr, &value);
  EXPECT_EQ(dict->nb_elements, 0);
  EXPECT_EQ(dict->first, head(dict));
  EXPECT_EQ(dict_get(dict, nullptr), nullptr);
  EXPECT_EQ(has_key(dict, nullptr), 0);
  EXPECT_EQ(dict_remove(dict, nullptr), -1);
  dict_free(dict);
}

/* ---- Ownership -------------------------------------------------------- */

TEST(DictOwnership, CopierCopiesValuesAndKeys) {
  dict_s *dict =
      dict_new("Tag", tag_deleter, tag_deserialize, tag_serialize, tag_copier);
  void *mine = tag_new("v");
  char key[] = "key";
  dict_add(dict, key, mine);
  key[0] = 'X'; // the dictionary holds its own key
  EXPECT_NE(dict_get(dict, "key"), mine);
  tag_deleter(mine);

  void *slot = nullptr;
  dict_copier(&slot, dict);
  dict_s *copy = static_cast<dict_s *>(slot);
  EXPECT_NE(dict_get(copy, "key"), dict_get(dict, "key"));
  EXPECT_NE(copy->first->key, dict->first->key);
  dict_free(dict);
  EXPECT_STREQ(tag_label(dict_get(copy, "key")), "v");
  dict_deleter(copy);
}

TEST(DictOwnership, WithoutCopierHandlesAreSharedAndTakenOver) {
  dict_s *dict =
      dict_new("Integer", Integer_deleter, nullptr, nullptr, nullptr);
  Integer *cell = static_cast<Integer *>(malloc(sizeof(Integer)));
  cell->value = 5;
  dict_add(dict, "k", cell);
  EXPECT_EQ(dict_get(dict, "k"), cell);

  // The copy shares the handle; it must not release it too.
  void *slot = nullptr;
  dict_copier(&slot, dict);
  dict_s *sharing = static_cast<dict_s *>(slot);
  EXPECT_EQ(dict_get(sharing, "k"), cell);
  sharing->deleter = nullptr;
  dict_free(sharing);
  dict_free(dict); // releases `cell`
}

TEST(DictOwnership, RemoveReleasesTheValue) {
  dict_s *dict = dict_new("Tag", tag_deleter, nullptr, nullptr, nullptr);
  dict_add(dict, "a", tag_new("a"));
  dict_add(dict, "b", tag_new("b"));
  EXPECT_EQ(dict_remove(dict, "a"), 0);
  EXPECT_STREQ(tag_label(dict_get(dict, "b")), "b");
  dict_free(dict);
}

/* ---- Writing ---------------------------------------------------------- */

TEST(DictSerialize, NativeValuesInAscendingKeyOrder) {
  dict_s *empty = text_dict();
  EXPECT_EQ(
      serialized(empty),
      R"({"__elements__":{},"__sub_type__":"Unicode","__type__":"Dict"})");
  dict_free(empty);

  dict_s *texts = text_dict();
  dict_add(texts, "zeta", const_cast<char *>("last"));
  dict_add(texts, "alpha", const_cast<char *>("first"));
  EXPECT_EQ(
      serialized(texts),
      R"({"__elements__":{"alpha":"first","zeta":"last"},"__sub_type__":"Unicode","__type__":"Dict"})");
  dict_free(texts);

  dict_s *booleans =
      dict_new("Boolean", Boolean_deleter, nullptr, nullptr, Boolean_copier);
  for (int32_t v : {0, 1, 0x200})
    dict_add(booleans, std::to_string(v).c_str(), &v);
  EXPECT_EQ(
      serialized(booleans),
      R"({"__elements__":{"0":false,"1":true,"512":false},"__sub_type__":"Boolean","__type__":"Dict"})");
  dict_free(booleans);
}

TEST(DictSerialize, SerializerNullValuesAndOtherMembers) {
  dict_s *tags =
      dict_new("Tag", tag_deleter, tag_deserialize, tag_serialize, nullptr);
  dict_add(tags, "t", tag_new("v"));
  dict_add(tags, "t", tag_new("w"));
  Json::Value out = parse(R"({"keep":[1],"__elements__":{"old":1}})");
  EXPECT_EQ(dict_serialize(tags, out), nullptr);
  EXPECT_EQ(
      render(out),
      R"({"__elements__":{"t":{"__type__":"Tag","__value__":"v"}},"__sub_type__":"Tag","__type__":"Dict","keep":[1]})");
  dict_free(tags);

  // Not native and no serializer, or a null native value: JSON null.
  Integer cell = {1};
  dict_s *opaque = dict_new("Opaque", nullptr, nullptr, nullptr, nullptr);
  dict_add(opaque, "a", &cell);
  dict_add(opaque, "b", nullptr);
  EXPECT_EQ(
      serialized(opaque),
      R"({"__elements__":{"a":null,"b":null},"__sub_type__":"Opaque","__type__":"Dict"})");
  dict_free(opaque);
  dict_s *texts = dict_new("Unicode", nullptr, nullptr, nullptr, nullptr);
  dict_add(texts, "a", nullptr);
  EXPECT_EQ(
      serialized(texts),
      R"({"__elements__":{"a":null},"__sub_type__":"Unicode","__type__":"Dict"})");
  dict_free(texts);
}

TEST(DictSerialize, ManyDuplicatesKeepTheOldestValue) {
  dict_s *dict = integer_dict();
  for (int32_t round = 0; round < 3; round++)
    for (int32_t k = 0; k < 50; k++)
      add_integer(dict, ("k" + std::to_string(k)).c_str(), round * 100 + k);
  Json::Value out;
  dict_serialize(dict, out);
  const Json::Value &elements = out["__elements__"];
  ASSERT_EQ(elements.size(), 50u);
  for (int32_t k = 0; k < 50; k++)
    EXPECT_EQ(elements["k" + std::to_string(k)].asInt(), k);
  dict_free(dict);
}

TEST(DictSerialize, OldestValueWinsWhateverTheKeysShareOrHold) {
  // Keys that share long prefixes, end within or past eight bytes, are
  // empty or hold bytes above 0x7f, each added several times.
  const std::vector<std::string> keys = {
      "abcdefgh",  "abcdefghi", "abcdefg",    "",           "abcdefgh\x80",
      "abcdefgha", "\xff",      "\xff\x01",   "abcdefghij", "b",
      "abcdefgh",  "a",         "abcdefghij", "",           "\xff"};
  dict_s *dict = integer_dict();
  std::map<std::string, int32_t> oldest;
  for (int32_t round = 0; round < 3; round++)
    for (size_t i = 0; i < keys.size(); i++) {
      int32_t value = round * 100 + static_cast<int32_t>(i);
      add_integer(dict, keys[i].c_str(), value);
      oldest.emplace(keys[i], value);
    }
  Json::Value out;
  dict_serialize(dict, out);
  const Json::Value &elements = out["__elements__"];
  ASSERT_EQ(elements.size(), oldest.size());
  for (const auto &[key, value] : oldest)
    EXPECT_EQ(elements[key].asInt(), value) << key;
  dict_free(dict);
}

/* ---- Reading ---------------------------------------------------------- */

TEST(DictDeserialize, TextsInAscendingNameOrderAsIndependentCopies) {
  dict_s *dict = text_dict();
  {
    Json::Value source = parse(
        R"({"__sub_type__":"Unicode","__elements__":{"zz":"two","aa":"one"}})");
    std::string printed = capture_stdout(
        [&] { EXPECT_EQ(dict_deserialize(dict, source), dict); });
    EXPECT_EQ(printed, "");
  }
  EXPECT_EQ(keys_of(dict), (std::vector<std::string>{"aa", "zz"}));
  EXPECT_STREQ(static_cast<char *>(dict_get(dict, "aa")), "one");
  EXPECT_STREQ(static_cast<char *>(dict_get(dict, "zz")), "two");
  dict_free(dict);
}

TEST(DictDeserialize, TemporaryValueReleasedOnlyWhenCopied) {
  const char *source =
      R"({"__sub_type__":"Integer","__elements__":{"a":1,"b":-2}})";
  struct Case {
    value_deleter deleter;
    value_copier copier;
  };
  // With a copier the value read is spare (released through the deleter,
  // or with free); without one the dictionary keeps it.
  const Case cases[] = {{Integer_deleter, Integer_copier},
                        {nullptr, Integer_copier},
                        {Integer_deleter, nullptr}};
  for (const Case &c : cases) {
    dict_s *dict = dict_new("Integer", c.deleter, nullptr, nullptr, c.copier);
    dict_deserialize(dict, parse(source));
    ASSERT_EQ(dict->nb_elements, 2);
    EXPECT_EQ(integer_of(dict, "a"), 1);
    EXPECT_EQ(integer_of(dict, "b"), -2);
    if (c.deleter == nullptr) {
      void **values = dict_values(dict);
      free(values[0]);
      free(values[1]);
      free(values);
    }
    dict_free(dict);
  }
}

TEST(DictDeserialize, DeserializerAndCopierTogether) {
  dict_s *dict =
      dict_new("Tag", tag_deleter, tag_deserialize, tag_serialize, tag_copier);
  Json::Value source =
      parse(R"({"__sub_type__":"Tag","__elements__":{"x":{"__value__":"1"}}})");
  dict_deserialize(dict, source);
  dict_deserialize(dict, source); // a second entry with the same key
  EXPECT_EQ(keys_of(dict), (std::vector<std::string>{"x", "x"}));
  EXPECT_STREQ(tag_label(dict_get(dict, "x")), "1");
  dict_free(dict);
}

TEST(DictDeserialize, SourcesThatAddNothingPrintNothing) {
  struct Case {
    const char *dict_type;
    const char *source;
  };
  const Case cases[] = {
      {"Unicode", "null"},
      {"Unicode", R"({"__elements__":{"a":"x"}})"},
      {"Unicode", R"({"__sub_type__":"Integer","__elements__":{"a":"x"}})"},
      {"Unicode", R"({"__sub_type__":"Unicodes","__elements__":{"a":"x"}})"},
      {"Unicode", R"({"__sub_type__":"Unicode"})"},
      {"Unicode", R"({"__sub_type__":"Uni","__elements__":null})"},
      {"Unicode", R"({"__sub_type__":"Unicode","__elements__":["x","y"]})"},
      {"Unicode", R"({"__sub_type__":"Unicode","__elements__":"xy"})"},
      {"Unicode", R"({"__sub_type__":"Unicode","__elements__":3})"},
      {"Opaque", R"({"__sub_type__":"Opaque","__elements__":{"a":1}})"},
  };
  for (const Case &c : cases) {
    dict_s *dict =
        dict_new(c.dict_type, string_deleter, nullptr, nullptr, text_copier());
    std::string printed =
        capture_stdout([&] { dict_deserialize(dict, parse(c.source)); });
    EXPECT_EQ(printed, "") << c.source;
    EXPECT_EQ(dict->nb_elements, 0) << c.source;
    EXPECT_EQ(dict->first, head(dict));
    dict_free(dict);
  }
}

TEST(DictDeserialize, AcceptedPrefixAndUnconvertibleMember) {
  dict_s *dict = integer_dict();
  Json::Value source =
      parse(R"({"__sub_type__":"Int","__elements__":{"a":1,"b":"x","c":3}})");
  EXPECT_ANY_THROW(dict_deserialize(dict, source));
  EXPECT_EQ(keys_of(dict), (std::vector<std::string>{"a"}));
  dict_free(dict);
}

TEST(DictDeserialize, RoundTripThroughJson) {
  dict_s *dict = integer_dict();
  add_integer(dict, "b", 2);
  add_integer(dict, "a", 1);
  Json::Value out;
  dict_serialize(dict, out);
  dict_s *back = integer_dict();
  dict_deserialize(back, out);
  EXPECT_EQ(keys_of(back), (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(integer_of(back, "b"), 2);
  dict_free(back);
  dict_free(dict);
}

} // namespace

namespace {

TEST(DictNullHandle, OperationsOnANullDictionaryAreHarmless) {
  Json::Value out = parse(R"({"keep":1})");
  EXPECT_EQ(dict_serialize(nullptr, out), nullptr);
  EXPECT_EQ(render(out), R"({"keep":1})");
  EXPECT_EQ(dict_deserialize(nullptr, out), nullptr);
  EXPECT_EQ(dict_get(nullptr, "a"), nullptr);
  EXPECT_EQ(has_key(nullptr, "a"), 0);
  EXPECT_EQ(dict_remove(nullptr, "a"), -1);
  dict_add(nullptr, "a", &out);
  char **keys = nullptr;
  int32_t count = -1;
  dict_keys(nullptr, &keys, &count);
  EXPECT_EQ(count, 0);
  free(keys);
  free(dict_values(nullptr));
  void *slot = &out;
  dict_copier(&slot, nullptr);
  EXPECT_EQ(slot, nullptr);
  dict_free(nullptr);
  dict_deleter(nullptr);
}

} // namespace
