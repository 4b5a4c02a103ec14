/* The dictionary: its ring, duplicate keys, ownership, JSON form and
 * reading. */
#include <cstdlib>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "capture_stdout.h"
#include "value_types.h"

namespace {

dict_s *integer_dict() {
  return dict_new("Integer", Integer_deleter, nullptr, nullptr, Integer_copier);
}

void add_integer(dict_s *dict, const char *key, int32_t value) {
  dict_add(dict, key, &value);
}

int32_t integer_of(dict_s *dict, const char *key) {
  return static_cast<Integer *>(dict_get(dict, key))->value;
}

std::string elements_of(dict_s *dict) {
  Json::Value out;
  EXPECT_EQ(dict_serialize(dict, out), nullptr);
  return render(out["__elements__"]);
}

/* Walks the ring both ways, checking every link, the keys and the count;
 * dict_keys lends the entries' own texts, oldest first. */
void expect_ring(dict_s *dict, const std::vector<std::string> &keys) {
  auto *head = reinterpret_cast<dict_entry_s *>(dict);
  std::vector<std::string> forward, backward;
  std::vector<char *> lent;
  dict_entry_s *previous = head;
  for (dict_entry_s *e = dict->first; e != head; previous = e, e = e->next) {
    EXPECT_EQ(e->prev, previous);
    forward.push_back(e->key);
    lent.push_back(e->key);
  }
  EXPECT_EQ(dict->last, previous);
  for (dict_entry_s *e = dict->last; e != head; e = e->prev)
    backward.insert(backward.begin(), e->key);
  EXPECT_EQ(forward, keys);
  EXPECT_EQ(backward, keys);
  EXPECT_EQ(dict->nb_elements, static_cast<int32_t>(keys.size()));
  char **given = nullptr;
  int32_t count = -1;
  dict_keys(dict, &given, &count);
  EXPECT_EQ(std::vector<char *>(given, given + count), lent);
  free(given);
}

/* Each entry removed or freed releases its value through the deleter. */
TEST(Dict, RingHoldsWhereverEntriesAreRemoved) {
  static int released;
  dict_s *dict = dict_new(
      "Integer", [](void *) { released++; }, nullptr, nullptr, nullptr);
  expect_ring(dict, {});
  dict_add(dict, nullptr, dict); // a null key adds nothing
  EXPECT_EQ(dict_get(dict, "a"), dict_get(dict, nullptr));
  EXPECT_EQ(dict_remove(dict, "a"), -1);
  EXPECT_EQ(dict_remove(dict, nullptr), -1);
  EXPECT_EQ(has_key(dict, nullptr), 0);
  expect_ring(dict, {});
  Integer cells[] = {{1}, {2}, {3}, {4}};
  for (Integer &cell : cells)
    dict_add(dict, std::string(1, char('a' + 4 - cell.value)).c_str(), &cell);
  released = 0;
  EXPECT_EQ(dict_remove(dict, "b"), 0); // middle
  expect_ring(dict, {"d", "c", "a"});
  EXPECT_EQ(dict_remove(dict, "d"), 0); // oldest
  EXPECT_EQ(dict_remove(dict, "a"), 0); // newest
  expect_ring(dict, {"c"});
  EXPECT_EQ(integer_of(dict, "c"), 2);
  EXPECT_EQ(dict_remove(dict, "c"), 0); // the only one
  expect_ring(dict, {});
  EXPECT_EQ(has_key(dict, "c"), 0);
  dict_add(dict, "again", &cells[0]);
  dict_add(dict, "more", &cells[1]);
  expect_ring(dict, {"again", "more"});
  EXPECT_EQ(has_key(dict, "more"), 1);
  EXPECT_EQ(released, 4);
  dict_free(dict);
  EXPECT_EQ(released, 6);

  char *unset = nullptr, **keys = &unset; // a null dictionary: an empty array
  int32_t count = -1;
  dict_keys(nullptr, &keys, &count);
  EXPECT_NE(keys, &unset);
  EXPECT_EQ(count, 0);
  free(keys);
  free(dict_values(nullptr));
}

TEST(Dict, DuplicateKeysOldestFirstAcrossGetRemoveSerializeAndCopy) {
  dict_s *dict = integer_dict();
  add_integer(dict, "k", 1);
  add_integer(dict, "other", 9);
  add_integer(dict, "k", 2);
  EXPECT_EQ(integer_of(dict, "k"), 1);
  EXPECT_EQ(elements_of(dict), R"({"k":1,"other":9})");
  void *copy = nullptr;
  dict_copier(&copy, dict);
  expect_ring(static_cast<dict_s *>(copy), {"k", "other", "k"});
  EXPECT_EQ(integer_of(static_cast<dict_s *>(copy), "k"), 1);
  dict_deleter(copy);
  EXPECT_EQ(dict_remove(dict, "k"), 0);
  EXPECT_EQ(integer_of(dict, "k"), 2);
  EXPECT_EQ(dict_remove(dict, "k"), 0);
  expect_ring(dict, {"other"});
  dict_free(dict);
}

TEST(Dict, CopiesKeysAndValuesThroughTheCopierOrSharesValues) {
  dict_s *ips =
      dict_new("IP", IP_deleter, IP_deserialize, IP_serialize, IP_copier);
  void *mine = ip_cell("v");
  char key[] = "key";
  dict_add(ips, key, mine);
  key[0] = 'X'; // the dictionary holds its own key
  EXPECT_NE(dict_get(ips, "key"), mine);
  IP_deleter(mine);
  void *copy = nullptr;
  dict_copier(&copy, ips);
  EXPECT_NE(dict_get(static_cast<dict_s *>(copy), "key"), dict_get(ips, "key"));
  EXPECT_EQ(dict_remove(ips, "key"), 0); // releases the value
  dict_free(ips);
  EXPECT_EQ(elements_of(static_cast<dict_s *>(copy)),
            R"({"key":{"__type__":"IP","__value__":"v"}})");
  dict_deleter(copy);

  Integer cell = {5};
  dict_s *shared = dict_new("Integer", nullptr, nullptr, nullptr, nullptr);
  dict_add(shared, "k", &cell);
  dict_copier(&copy, shared);
  void **values = dict_values(static_cast<dict_s *>(copy));
  EXPECT_EQ(values[0], &cell);
  free(values);
  dict_deleter(copy);
  dict_free(shared);
}

/* Members in byte order of their keys, over `out`'s old elements; a null
 * native value is null, and so is every value of a type that is neither
 * native nor serializable. */
TEST(Dict, WritesMembersInByteOrderAsBareValuesEnvelopesOrNull) {
  dict_s *texts = dict_new("Unicode", nullptr, nullptr, nullptr, nullptr);
  dict_add(texts, "zeta", const_cast<char *>("last"));
  dict_add(texts, "alpha", nullptr);
  Json::Value out = json(R"({"keep":[1],"__elements__":{"old":1}})");
  EXPECT_EQ(dict_serialize(texts, out), nullptr);
  EXPECT_EQ(render(out), R"({"__elements__":{"alpha":null,"zeta":"last"},)"
                         R"("__sub_type__":"Unicode","__type__":"Dict",)"
                         R"("keep":[1]})");
  dict_free(texts);

  void *ip = ip_cell("v");
  dict_s *ips = dict_new("IP", nullptr, nullptr, IP_serialize, nullptr);
  dict_add(ips, "t", ip);
  EXPECT_EQ(elements_of(ips), R"({"t":{"__type__":"IP","__value__":"v"}})");
  ips->serializer = nullptr;
  EXPECT_EQ(elements_of(ips), R"({"t":null})");
  dict_free(ips);
  IP_deleter(ip);
}

/* The serializer runs once per entry in insertion order, each time on the
 * value a lookup of its key finds; a throw keeps the members written before
 * it, none half written. */
TEST(Dict, SerializerRunsPerEntryOldestFirstAndAThrowKeepsTheWrittenOnes) {
  static std::vector<int32_t> seen;
  static size_t throw_at;
  const value_serializer record = [](void *value, Json::Value &out) {
    if (seen.size() == throw_at) {
      out = "half";
      throw std::runtime_error("refused");
    }
    seen.push_back(static_cast<Integer *>(value)->value);
    out = static_cast<Json::Int>(seen.size());
    return &out;
  };
  dict_s *dict =
      dict_new("Integer", Integer_deleter, nullptr, record, Integer_copier);
  for (const auto &[key, value] :
       {std::pair("z", 1), {"a", 2}, {"z", 3}, {"m", 4}, {"a", 5}})
    add_integer(dict, key, value);
  const struct {
    size_t throw_at;
    std::vector<int32_t> seen;
    const char *elements;
  } cases[] = {
      {99, {1, 2, 1, 4, 2}, R"({"a":5,"m":4,"z":3})"},
      {0, {}, "{}"},
      {1, {1}, R"({"z":1})"},
      {3, {1, 2, 1}, R"({"a":2,"z":3})"},
      {4, {1, 2, 1, 4}, R"({"a":2,"m":4,"z":3})"},
  };
  for (const auto &c : cases) {
    seen.clear();
    throw_at = c.throw_at;
    Json::Value out = json(R"({"__elements__":{"old":1}})");
    if (c.throw_at < 5)
      EXPECT_THROW(dict_serialize(dict, out), std::runtime_error);
    else
      EXPECT_EQ(dict_serialize(dict, out), nullptr);
    EXPECT_EQ(seen, c.seen) << c.throw_at;
    EXPECT_EQ(render(out["__elements__"]), c.elements) << c.throw_at;
  }
  dict_free(dict);
}

/* Keys that share long prefixes, end before or after eight bytes, are empty
 * or hold bytes above 0x7f, each added three times: each writes its oldest
 * value. */
TEST(Dict, OldestValueIsWrittenWhateverTheKeysShareOrHold) {
  const std::vector<std::string> keys = {"abcdefgh",
                                         "abcdefghi",
                                         "abcdefg",
                                         "",
                                         "abcdefgh\x80",
                                         "\xff",
                                         "\xff\x01",
                                         "b",
                                         "abcdefghj",
                                         "\xff"
                                         "234567A",
                                         "\xff"
                                         "234567B",
                                         "a\xff"
                                         "234567"};
  dict_s *dict = integer_dict();
  std::map<std::string, int32_t> oldest;
  for (int32_t round = 0; round < 3; round++)
    for (size_t i = 0; i < keys.size(); i++) {
      const int32_t value = round * 100 + static_cast<int32_t>(i);
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

/* Members are read in byte order of their names, read twice added twice;
 * with a copier the value read is released (through the deleter, or free
 * without one), without one the dictionary keeps it. A member that cannot
 * be converted raises and keeps the entries before it. */
TEST(Dict, ReadsNamesInByteOrderReleasingTheSpareValue) {
  dict_s *texts = dict_new("Unicode", string_deleter, string_deserialize,
                           nullptr, text_copier);
  {
    const Json::Value source =
        json(R"({"__sub_type__":"Unicode","__elements__":)"
             R"({"zz":"t\u00e9","aa":null,"b":-3}})");
    dict_deserialize(texts, source);
    EXPECT_EQ(dict_deserialize(texts, source), texts);
  }
  expect_ring(texts, {"aa", "b", "zz", "aa", "b", "zz"});
  EXPECT_EQ(elements_of(texts), R"({"aa":"","b":"-3","zz":"t\u00e9"})");
  dict_free(texts);

  const std::pair<value_deleter, value_copier> cases[] = {
      {Integer_deleter, Integer_copier},
      {nullptr, Integer_copier},
      {Integer_deleter, nullptr}};
  for (const auto &[deleter, copier] : cases) {
    dict_s *dict = dict_new("Integer", deleter, nullptr, nullptr, copier);
    EXPECT_ANY_THROW(dict_deserialize(
        dict,
        json(R"({"__sub_type__":"Int","__elements__":{"a":1,"b":"x"}})")));
    expect_ring(dict, {"a"});
    EXPECT_EQ(integer_of(dict, "a"), 1);
    if (deleter == nullptr)
      free(dict_get(dict, "a"));
    dict_free(dict);
  }
}

TEST(Dict, SourcesThatAddNothingPrintNothing) {
  const struct {
    const char *dict_type, *source;
  } cases[] = {
      {"Unicode", "null"},
      {"Unicode", R"({"__elements__":{"a":"x"}})"},
      {"Unicode", R"({"__sub_type__":"Unicodes","__elements__":{"a":"x"}})"},
      {"Unicode", R"({"__sub_type__":"Unicode"})"},
      {"Unicode", R"({"__sub_type__":"Unicode","__elements__":["x","y"]})"},
      {"Opaque", R"({"__sub_type__":"Opaque","__elements__":{"a":1}})"}};
  for (const auto &c : cases) {
    dict_s *dict =
        dict_new(c.dict_type, string_deleter, nullptr, nullptr, text_copier);
    EXPECT_EQ(capture_stdout([&] { dict_deserialize(dict, json(c.source)); }),
              "")
        << c.source;
    EXPECT_EQ(dict->nb_elements, 0) << c.source;
    dict_free(dict);
  }
}

} // namespace
