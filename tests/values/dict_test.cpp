#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "capture_stdout.h"
#include "container_support.h"
#include "velmora/values.h"

namespace {

using namespace container_test;

dict_s *integer_dict() {
  return dict_new("Integer", Integer_deleter, nullptr, nullptr, Integer_copier);
}

dict_s *text_dict(const char *name = "Unicode") {
  return dict_new(name, string_deleter, string_deserialize, nullptr,
                  text_copier());
}

dict_entry_s *head(dict_s *dict) {
  return reinterpret_cast<dict_entry_s *>(dict);
}

void add_integer(dict_s *dict, const char *key, int32_t value) {
  dict_add(dict, key, &value);
}

int32_t integer_of(dict_s *dict, const char *key) {
  return static_cast<Integer *>(dict_get(dict, key))->value;
}

std::vector<std::string> keys_of(dict_s *dict) {
  char **keys = nullptr;
  int32_t count = -1;
  dict_keys(dict, &keys, &count);
  std::vector<std::string> out(keys, keys + count);
  free(keys);
  return out;
}

/* Walks the ring both ways and checks every link and the count. */
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
  EXPECT_EQ(keys_of(dict), keys);
  EXPECT_EQ(dict->nb_elements, static_cast<int32_t>(keys.size()));
}

std::string serialized(dict_s *dict) {
  Json::Value out;
  EXPECT_EQ(dict_serialize(dict, out), nullptr);
  return render(out);
}

TEST(DictRing, RemovalAnywhereAndOfTheOnlyEntry) {
  dict_s *dict = integer_dict();
  expect_ring(dict, {});
  EXPECT_EQ(dict_get(dict, "a"), nullptr);
  EXPECT_EQ(has_key(dict, "a"), 0);
  EXPECT_EQ(dict_remove(dict, "a"), -1);
  dict_add(dict, nullptr, dict); // a null key adds nothing
  expect_ring(dict, {});

  for (const char *key : {"d", "c", "b", "a"})
    add_integer(dict, key, key[0]);
  EXPECT_EQ(dict_remove(dict, "b"), 0); // middle
  expect_ring(dict, {"d", "c", "a"});
  EXPECT_EQ(dict_remove(dict, "d"), 0); // oldest
  expect_ring(dict, {"c", "a"});
  EXPECT_EQ(dict_remove(dict, "a"), 0); // newest
  expect_ring(dict, {"c"});
  EXPECT_EQ(dict_remove(dict, "c"), 0); // only
  EXPECT_EQ(dict->first, head(dict));
  EXPECT_EQ(dict->last, head(dict));
  EXPECT_EQ(dict_remove(dict, "c"), -1);
  add_integer(dict, "again", 2);
  expect_ring(dict, {"again"});
  EXPECT_EQ(integer_of(dict, "again"), 2);
  dict_free(dict);
}

TEST(DictDuplicates, OldestFirstAcrossGetRemoveSerializeAndCopy) {
  dict_s *dict = integer_dict();
  add_integer(dict, "k", 1);
  add_integer(dict, "other", 9);
  add_integer(dict, "k", 2);
  EXPECT_EQ(integer_of(dict, "k"), 1);
  EXPECT_EQ(serialized(dict), R"({"__elements__":{"k":1,"other":9},)"
                              R"("__sub_type__":"Integer","__type__":"Dict"})");
  void *slot = nullptr;
  dict_copier(&slot, dict);
  expect_ring(static_cast<dict_s *>(slot), {"k", "other", "k"});
  EXPECT_EQ(integer_of(static_cast<dict_s *>(slot), "k"), 1);
  dict_deleter(slot);

  EXPECT_EQ(dict_remove(dict, "k"), 0);
  EXPECT_EQ(integer_of(dict, "k"), 2);
  EXPECT_EQ(dict_remove(dict, "k"), 0);
  EXPECT_EQ(has_key(dict, "k"), 0);
  expect_ring(dict, {"other"});
  dict_free(dict);
}

TEST(DictOwnership, CopiesThroughTheCopierOrSharesHandles) {
  dict_s *tags =
      dict_new("Tag", tag_deleter, tag_deserialize, tag_serialize, tag_copier);
  void *mine = tag_new("v");
  char key[] = "key";
  dict_add(tags, key, mine);
  key[0] = 'X'; // the dictionary holds its own key
  EXPECT_NE(dict_get(tags, "key"), mine);
  tag_deleter(mine);
  void *slot = nullptr;
  dict_copier(&slot, tags);
  dict_s *copy = static_cast<dict_s *>(slot);
  EXPECT_NE(dict_get(copy, "key"), dict_get(tags, "key"));
  EXPECT_EQ(dict_remove(tags, "key"), 0); // releases the value
  dict_free(tags);
  EXPECT_STREQ(tag_label(dict_get(copy, "key")), "v");
  dict_free(copy);

  Integer cell = {5};
  dict_s *shared = dict_new("Integer", nullptr, nullptr, nullptr, nullptr);
  dict_add(shared, "k", &cell);
  dict_copier(&slot, shared);
  EXPECT_EQ(dict_get(static_cast<dict_s *>(slot), "k"), &cell);
  void **values = dict_values(static_cast<dict_s *>(slot));
  EXPECT_EQ(values[0], &cell);
  free(values);
  dict_free(static_cast<dict_s *>(slot));
  dict_free(shared);
}

TEST(DictSerialize, MembersInByteOrderAsBareValuesEnvelopesOrNull) {
  dict_s *texts = text_dict();
  EXPECT_EQ(
      serialized(texts),
      R"({"__elements__":{},"__sub_type__":"Unicode","__type__":"Dict"})");
  dict_add(texts, "zeta", const_cast<char *>("last"));
  dict_add(texts, "alpha", const_cast<char *>("first"));
  EXPECT_EQ(keys_of(texts), (std::vector<std::string>{"zeta", "alpha"}));
  EXPECT_EQ(serialized(texts),
            R"({"__elements__":{"alpha":"first","zeta":"last"},)"
            R"("__sub_type__":"Unicode","__type__":"Dict"})");
  dict_free(texts);

  Boolean cells[2] = {{1}, {0x200}};
  dict_s *booleans = dict_new("Boolean", nullptr, nullptr, nullptr, nullptr);
  for (Boolean &cell : cells)
    dict_add(booleans, std::to_string(cell.value).c_str(), &cell);
  dict_add(booleans, "null", nullptr);
  EXPECT_EQ(serialized(booleans),
            R"({"__elements__":{"1":true,"512":false,"null":null},)"
            R"("__sub_type__":"Boolean","__type__":"Dict"})");
  dict_free(booleans);

  dict_s *tags =
      dict_new("Tag", tag_deleter, tag_deserialize, tag_serialize, nullptr);
  dict_add(tags, "t", tag_new("v"));
  Json::Value out = parse(R"({"keep":[1],"__elements__":{"old":1}})");
  EXPECT_EQ(dict_serialize(tags, out), nullptr);
  EXPECT_EQ(render(out), R"({"__elements__":{"t":{"__type__":"Tag",)"
                         R"("__value__":"v"}},"__sub_type__":"Tag",)"
                         R"("__type__":"Dict","keep":[1]})");
  tags->serializer = nullptr; // neither native nor serializable: null
  EXPECT_EQ(serialized(tags), R"({"__elements__":{"t":null},)"
                              R"("__sub_type__":"Tag","__type__":"Dict"})");
  dict_free(tags);
}

TEST(DictSerialize, OldestValueWinsWhateverTheKeysShareOrHold) {
  // Keys that share long prefixes, end before or after eight bytes, are
  // empty or hold bytes above 0x7f, each added three times.
  const std::vector<std::string> keys = {
      "abcdefgh", "abcdefghi", "abcdefg", "",   "abcdefgh\x80", "abcdefgha",
      "\xff",     "\xff\x01",  "b",       "ab", "abcdefghij"};
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

TEST(DictDeserialize, NamesInByteOrderWithTheSpareValueReleased) {
  dict_s *texts = text_dict();
  {
    Json::Value source = parse(R"({"__sub_type__":"Unicode",)"
                               R"("__elements__":{"zz":"two","aa":"one"}})");
    EXPECT_EQ(capture_stdout([&] { dict_deserialize(texts, source); }), "");
    dict_deserialize(texts, source); // read twice: every name twice
  }
  expect_ring(texts, {"aa", "zz", "aa", "zz"});
  EXPECT_STREQ(static_cast<char *>(dict_get(texts, "zz")), "two");
  dict_free(texts);

  // With a copier the value read is released (through the deleter, or
  // free without one); without a copier the dictionary keeps it. A member
  // that cannot be converted raises and keeps the entries before it.
  const struct {
    value_deleter deleter;
    value_copier copier;
  } cases[] = {{Integer_deleter, Integer_copier},
               {nullptr, Integer_copier},
               {Integer_deleter, nullptr}};
  for (const auto &c : cases) {
    dict_s *dict = dict_new("Integer", c.deleter, nullptr, nullptr, c.copier);
    EXPECT_ANY_THROW(
        dict_deserialize(dict, parse(R"({"__sub_type__":"Int",)"
                                     R"("__elements__":{"a":1,"b":"x"}})")));
    EXPECT_EQ(keys_of(dict), (std::vector<std::string>{"a"}));
    EXPECT_EQ(integer_of(dict, "a"), 1);
    if (c.deleter == nullptr)
      free(dict_get(dict, "a"));
    dict_free(dict);
  }
}

TEST(DictDeserialize, SourcesThatAddNothingPrintNothing) {
  const struct {
    const char *dict_type;
    const char *source;
  } cases[] = {
      {"Unicode", "null"},
      {"Unicode", R"({"__elements__":{"a":"x"}})"},
      {"Unicode", R"({"__sub_type__":"Unicodes","__elements__":{"a":"x"}})"},
      {"Unicode", R"({"__sub_type__":"Unicode"})"},
      {"Unicode", R"({"__sub_type__":"Unicode","__elements__":["x","y"]})"},
      {"Unicode", R"({"__sub_type__":"Unicode","__elements__":"xy"})"},
      {"Opaque", R"({"__sub_type__":"Opaque","__elements__":{"a":1}})"},
  };
  for (const auto &c : cases) {
    dict_s *dict = text_dict(c.dict_type);
    dict->deserializer = nullptr;
    EXPECT_EQ(capture_stdout([&] { dict_deserialize(dict, parse(c.source)); }),
              "")
        << c.source;
    EXPECT_EQ(dict->nb_elements, 0) << c.source;
    dict_free(dict);
  }
}

} // namespace
