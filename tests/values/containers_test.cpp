/* List, result page and dictionary: growth, sharing, their JSON form and
 * reading; null containers. */
#include <stdexcept>
#include <vector>

#include <gtest/gtest.h>

#include "capture_stdout.h"
#include "value_types.h"

namespace {

enum kind { LIST, PAGE, DICT };
int released = 0;

void *make(kind k, const char *name, const value_type &t) {
  if (k == LIST)
    return list_new(name, t.release, t.read, t.write, t.copy);
  if (k == PAGE)
    return result_set_new(name, t.release, t.read, t.write, t.copy);
  return dict_new(name, t.release, t.read, t.write, t.copy);
}

/* A container's "__elements__" (and a page's total) as JSON text. */
std::string shown(kind k, void *c) {
  Json::Value out;
  (k == LIST   ? list_serialize
   : k == PAGE ? result_set_serialize
               : dict_serialize)(c, out);
  return render(out["__elements__"]) +
         (k == PAGE ? " " + render(out["__total_items__"]) : "");
}

/* Walks the ring, checking every link, the keys and the count; dict_keys
 * lends the entries' own texts, oldest first. */
void expect_ring(dict_s *dict, const std::vector<std::string> &keys) {
  auto *head = reinterpret_cast<dict_entry_s *>(dict), *previous = head;
  char **lent = nullptr;
  int32_t count = -1, i = 0;
  dict_keys(dict, &lent, &count);
  ASSERT_EQ(count, static_cast<int32_t>(keys.size()));
  for (auto *e = dict->first; e != head; previous = e, e = e->next, i++) {
    ASSERT_LT(i, count);
    EXPECT_TRUE(e->prev == previous && e->key == lent[i] && e->key == keys[i]);
  }
  EXPECT_TRUE(dict->last == previous && i == count);
  free(lent);
}

TEST(List, GrowsLendsInPlaceAndDeletesEachElement) {
  Integer cells[17];
  list_s *list = list_new(
      "Integer", [](void *) { released++; }, 0, 0, 0);
  for (int32_t i = 0; i < 17; i++) {
    if (i == 4 || i == 5) { // full, then doubled
      EXPECT_EQ(list->capacity, 4 * (i - 3));
    }
    list_add(list, &cells[i]); // no copier: the handle itself
  }
  EXPECT_EQ(list->capacity, 32);
  for (int32_t i = -1; i <= 17; i++)
    EXPECT_EQ(list_get(list, i), i < 0 || i == 17 ? nullptr : &cells[i]);
  released = 0;
  list_del(list);
  EXPECT_EQ(released, 17);
}

/* With a copier a container holds its own copies (the caller keeps its
 * value), without one the handles given; copies of containers follow. */
TEST(List, AddsAndCopiesThroughTheCopierOrShare) {
  for (value_copier copier : {Integer_copier, value_copier()}) {
    Integer mine = {5};
    const value_type t = {"", copier ? Integer_deleter : nullptr, 0, 0, copier};
    void *list = make(LIST, "Integer", t), *page = make(PAGE, "Integer", t);
    dict_s *dict = static_cast<dict_s *>(make(DICT, "Integer", t));
    char key[] = "key";
    list_add(static_cast<list_s *>(list), &mine);
    result_set_add(static_cast<result_set_s *>(page), &mine);
    dict_add(dict, key, &mine);
    key[0] = 'X'; // the key is the dictionary's own
    result_set_set_total_items(static_cast<result_set_s *>(page), -5);
    void *copies[3];
    list_copier(&copies[0], list);
    resultset_copier(&copies[1], page);
    dict_copier(&copies[2], dict);
    void **values = dict_values(static_cast<dict_s *>(copies[2]));
    for (void *held :
         {list_get(static_cast<list_s *>(list), 0), dict_get(dict, "key"),
          list_get(static_cast<list_s *>(copies[0]), 0),
          result_set_get(static_cast<result_set_s *>(copies[1]), 0), values[0]})
      EXPECT_EQ(held == &mine, copier == nullptr);
    free(values);
    mine.value = 6; // copies do not follow
    EXPECT_EQ(shown(LIST, copies[0]) + shown(PAGE, copies[1]) +
                  shown(DICT, copies[2]),
              copier ? R"([5][5] -5{"key":5})" : R"([6][6] -5{"key":6})");
    list_del(list);
    result_set_del(page);
    dict_free(dict);
    list_del(copies[0]);
    result_set_del(copies[1]);
    dict_deleter(copies[2]);
  }
  Integer *given = static_cast<Integer *>(calloc(1, sizeof(Integer)));
  list_s *list = list_new("Integer", Integer_deleter, 0, 0, Integer_copier);
  list_add_copy(list, given, VELMORA_FALSE);          // given over
  list_add_copy(list, given, static_cast<bool_t>(7)); // non-zero copies
  EXPECT_EQ(list_get(list, 0), given);
  EXPECT_NE(list_get(list, 1), given);
  list_del(list);
}

/* Bare native values (a null one is null), envelopes through the
 * serializer, null for any other element; over `out`'s old members. */
TEST(List, WritesBareNativeValuesEnvelopesOrNull) {
  Integer numbers[] = {{3}, {INT32_MIN}};
  Boolean flags[] = {{1}, {0}, {2}, {0x100}}; // the low-order byte decides
  void *ip = IP_deserialize(json(R"({"__value__":"::1"})"));
  const struct {
    const char *sub_type;
    value_serializer serializer;
    std::vector<void *> elements;
    const char *written;
  } cases[] = {
      {"Integer", nullptr, {}, "[]"},
      {"Integer", nullptr, {numbers, numbers + 1}, "[3,-2147483648]"},
      {"Boolean",
       nullptr,
       {flags, flags + 1, flags + 2, flags + 3},
       "[true,false,true,false]"},
      {"Unicode",
       nullptr,
       {(char *)"h\xc3\xa9", nullptr},
       R"(["h\u00e9",null])"},
      {"Opaque", nullptr, {numbers}, "[null]"},
      {"IP", IP_serialize, {ip}, R"([{"__type__":"IP","__value__":"::1"}])"}};
  for (const auto &c : cases) {
    result_set_s *page = result_set_new(c.sub_type, 0, 0, c.serializer, 0);
    dict_s *dict = dict_new(c.sub_type, 0, 0, c.serializer, 0);
    Json::Value members(Json::objectValue), list = json(c.written);
    for (void *element : c.elements) {
      members[std::to_string(dict->nb_elements)] = list[dict->nb_elements];
      dict_add(dict, std::to_string(dict->nb_elements).c_str(), element);
      result_set_add(page, element);
    }
    Json::Value out = json(R"({"extra":5,"__elements__":[9,9,9]})");
    EXPECT_EQ(list_serialize(page->list, out), &out);
    EXPECT_EQ(render(out), std::string(R"({"__elements__":)") + c.written +
                               R"(,"__sub_type__":")" + c.sub_type +
                               R"(","__type__":"List","extra":5})");
    EXPECT_EQ(result_set_serialize(page, out), &out);
    EXPECT_EQ(out["__type__"].asString() + render(out["__total_items__"]),
              "ResultSet0");
    EXPECT_EQ(shown(DICT, dict), render(members));
    dict_free(dict);
    result_set_del(page);
  }
  IP_deleter(ip);
}

/* A source read twice: what a list or page printed ("!" for "Out the loop"
 * each time), then what the container holds. A list reads an array whose
 * "__sub_type__" is a leading part of its own (absent is "Unknown"), a page
 * also its total, accepted or not, a dictionary an object's members, in
 * byte order of their names. Types other than the native ones need their
 * deserializer. */
TEST(List, ReadsWhatItsSubTypeAcceptsAndCanReach) {
  const struct {
    kind k;
    int type;
    const char *sub_type, *elements, *held, *name = nullptr;
  } cases[] = {
      {LIST, INTEGER, R"("Int")", "[1,-2]", "[1,-2,1,-2]"},
      {LIST, INTEGER, R"("")", "[1]", "[1,1]"},
      {LIST, INTEGER, R"("Integers")", "[1]", "![]"},
      {LIST, INTEGER, R"("nteger")", "[1]", "![]"},
      {LIST, INTEGER, nullptr, "[1]", "![]"},
      {LIST, INTEGER, nullptr, "[1]", "[]", "Unknown type"},
      {LIST, INTEGER, R"("")", "[1]", "[]", "Other"},
      {LIST, INTEGER, R"("")", R"({"0":1})", "[]"},
      {LIST, UNICODE, R"("")", R"(["\u00e9",null,-3])",
       R"(["\u00e9","","-3","\u00e9","","-3"])"},
      {LIST, UNICODE_READ, R"("")", "[null]", R"(["",""])"},
      {LIST, BOOLEAN, R"("")", "[2,false]", "[true,false,true,false]"},
      {LIST, IPS, R"("")", R"([{"__value__":1}])",
       R"([{"__type__":"IP","__value__":"1"},{"__type__":"IP","__value__":"1"}])"},
      /* Members after the elements: the page's total. */
      {PAGE, INTEGER, R"("")", R"([4],"__total_items__":40)", "[4,4] 40"},
      {PAGE, INTEGER, R"("x")", R"([],"__total_items__":7)", "![] 7"},
      {PAGE, INTEGER, R"("")", "7", "[] -1"},
      {PAGE, INTEGER, R"("")", R"([],"__total_items__":null)", "[] 0"},
      {DICT, UNICODE_READ, R"("")", R"({"zz":"\u00e9","aa":null,"b":-3})",
       R"({"aa":"","b":"-3","zz":"\u00e9"})"},
      {DICT, INTEGER, R"("Int")", R"({"a":1})", R"({"a":1})"},
      {DICT, INTEGER, R"("Ints")", R"({"a":1})", "{}"},
      {DICT, INTEGER, nullptr, R"({"a":1})", "{}"},
      {DICT, INTEGER, R"("")", "[1]", "{}"},
      {DICT, INTEGER, R"("")", R"({"a":1})", "{}", "Other"}};
  for (const auto &c : cases) {
    const value_type &t = value_types[c.type];
    void *held = make(c.k, c.name ? c.name : t.name, t);
    const Json::Value in =
        json(std::string("{") +
             (c.sub_type ? std::string(R"("__sub_type__":)") + c.sub_type + ","
                         : "") +
             R"("__elements__":)" + c.elements + "}");
    std::string printed = capture_stdout([&] {
      for (int twice = 0; twice < 2; twice++)
        EXPECT_EQ(c.k == LIST ? (void *)list_deserialize((list_s *)held, in)
                  : c.k == PAGE
                      ? (void *)result_set_deserialize((result_set_s *)held, in)
                      : (void *)dict_deserialize((dict_s *)held, in),
                  held);
    });
    EXPECT_EQ(printed + shown(c.k, held),
              (c.held[0] == '!' ? "Out the loopOut the loop" : "") +
                  std::string(c.held + (c.held[0] == '!')))
        << c.elements;
    (c.k == LIST   ? list_del
     : c.k == PAGE ? result_set_del
                   : dict_deleter)(held);
  }
}

/* Positions an array never set read as null; an entry or member that
 * cannot be converted raises and keeps what came before it. */
TEST(List, ReadingStopsAtAnEntryThatCannotBeConverted) {
  Json::Value sparse = json(R"({"__sub_type__":""})");
  sparse["__elements__"][1] = 5;
  sparse["__elements__"][3] = "x";
  for (value_copier copier : {Integer_copier, value_copier()}) {
    const value_type t = {"Integer", Integer_deleter, 0, 0, copier};
    void *list = make(LIST, "Integer", t), *dict = make(DICT, "Integer", t);
    EXPECT_ANY_THROW(list_deserialize((list_s *)list, sparse));
    EXPECT_ANY_THROW(dict_deserialize(
        (dict_s *)dict,
        json(R"({"__sub_type__":"","__elements__":{"a":1,"b":"x"}})")));
    EXPECT_EQ(shown(LIST, list) + shown(DICT, dict), R"([0,5,0]{"a":1})");
    list_del(list);
    dict_deleter(dict);
  }
}

/* Lookups and removal find the oldest entry of a key; each entry removed
 * or freed releases its value through the deleter. */
TEST(Dict, RingHoldsWhereverEntriesAreRemoved) {
  dict_s *dict = dict_new(
      "Integer", [](void *) { released++; }, 0, 0, 0);
  dict_add(dict, nullptr, dict); // a null key adds nothing
  expect_ring(dict, {});
  Integer cells[] = {{1}, {2}, {3}, {4}, {5}};
  for (const char *key : {"d", "c", "b", "a", "c"})
    dict_add(dict, key, &cells[dict->nb_elements]);
  released = 0;
  const struct {
    const char *key;
    int32_t result;
    std::vector<std::string> left;
    Integer *found; /* by dict_get "c" */
  } removals[] = {{"b", 0, {"d", "c", "a", "c"}, &cells[1]}, // middle
                  {"d", 0, {"c", "a", "c"}, &cells[1]},      // oldest
                  {"c", 0, {"a", "c"}, &cells[4]},           // oldest "c"
                  {"c", 0, {"a"}, nullptr},                  // newest
                  {"a", 0, {}, nullptr},                     // the only one
                  {"a", -1, {}, nullptr},
                  {nullptr, -1, {}, nullptr}};
  for (const auto &r : removals) {
    EXPECT_EQ(dict_remove(dict, r.key), r.result);
    expect_ring(dict, r.left);
    EXPECT_EQ(dict_get(dict, "c"), r.found);
    EXPECT_EQ(has_key(dict, "c"), r.found != nullptr);
  }
  EXPECT_EQ(released, 5);
  dict_add(dict, "again", cells);
  expect_ring(dict, {"again"});
  dict_free(dict);
  EXPECT_EQ(released, 6);
}

/* The serializer runs once per entry in insertion order, each time on the
 * value a lookup of its key finds; a throw keeps the members written before
 * it, none half written. */
TEST(Dict, SerializerRunsPerEntryOldestFirstAndAThrowKeepsTheWrittenOnes) {
  static std::vector<int32_t> seen;
  static size_t throw_at;
  dict_s *dict = dict_new(
      "Integer", Integer_deleter, nullptr,
      [](void *value, Json::Value &out) {
        if (seen.size() == throw_at)
          throw std::runtime_error((out = "half").asString());
        seen.push_back(static_cast<Integer *>(value)->value);
        return &(out = static_cast<Json::Int>(seen.size()));
      },
      Integer_copier);
  for (int32_t value : {1, 2, 3, 4, 5})
    dict_add(dict, std::string(1, "zazma"[value - 1]).c_str(), &value);
  const struct {
    size_t throw_at;
    std::vector<int32_t> seen;
    const char *elements;
  } cases[] = {{9, {1, 2, 1, 4, 2}, R"({"a":5,"m":4,"z":3})"},
               {0, {}, "{}"},
               {1, {1}, R"({"z":1})"},
               {3, {1, 2, 1}, R"({"a":2,"z":3})"},
               {4, {1, 2, 1, 4}, R"({"a":2,"m":4,"z":3})"}};
  for (const auto &c : cases) {
    seen.clear();
    throw_at = c.throw_at;
    Json::Value out = json(R"({"__elements__":{"old":1}})");
    try {
      EXPECT_EQ(dict_serialize(dict, out), nullptr);
      EXPECT_EQ(c.throw_at, 9u);
    } catch (const std::runtime_error &) {
      EXPECT_LT(c.throw_at, 5u);
    }
    EXPECT_EQ(seen, c.seen) << c.throw_at;
    EXPECT_EQ(render(out["__elements__"]), c.elements) << c.throw_at;
  }
  dict_free(dict);
}

/* Keys that share long prefixes, end before or after eight bytes, are
 * empty or hold bytes above 0x7f, each added twice: each writes its oldest
 * value. */
TEST(Dict, OldestValueIsWrittenWhateverTheKeysShareOrHold) {
  const char *keys[] = {"abcdefgh",
                        "abcdefghi",
                        "abcdefg",
                        "",
                        "\xff",
                        "abcdefgh\x80",
                        "\xff\x01",
                        "abcdefghj",
                        "\xff"
                        "234567A",
                        "\xff"
                        "234567B"};
  dict_s *dict = dict_new("Integer", Integer_deleter, 0, 0, Integer_copier);
  Json::Value oldest;
  for (int32_t value = 0; value < 20; value++) {
    dict_add(dict, keys[value % 10], &value);
    if (value < 10)
      oldest[keys[value]] = value;
  }
  EXPECT_EQ(shown(DICT, dict), render(oldest));
  dict_free(dict);
}

/* Given a null container, nothing is written, read or copied;
 * list_compare looks at sub-types, then counts, never elements. */
TEST(List, NullContainersDoNothingAndCompareByTypeAndCount) {
  Json::Value out = json(R"({"a":1})");
  EXPECT_EQ(list_serialize(nullptr, out), result_set_serialize(nullptr, out));
  EXPECT_EQ(dict_serialize(nullptr, out), nullptr);
  EXPECT_EQ(render(*list_serialize(nullptr, out)), R"({"a":1})");
  for (value_copier copy : {list_copier, resultset_copier, dict_copier}) {
    void *slot = &slot;
    copy(&slot, nullptr);
    EXPECT_EQ(slot, nullptr);
  }
  EXPECT_EQ(list_deserialize(nullptr, out), nullptr);
  EXPECT_EQ(result_set_deserialize(nullptr, out), nullptr);
  EXPECT_EQ(dict_deserialize(nullptr, out), nullptr);
  list_s *lists[] = {list_new("Int", 0, 0, 0, 0),
                     list_new("Integer", 0, 0, 0, 0),
                     list_new("Integer", 0, 0, 0, 0)};
  list_add(lists[2], lists);
  EXPECT_EQ(list_compare(lists[0], lists[1]) + list_compare(lists[0], nullptr) +
                list_compare(nullptr, lists[0]),
            -3);
  EXPECT_EQ(list_compare(lists[1], lists[2]), -2);
  list_add(lists[1], lists[2]); // elements are never compared
  EXPECT_EQ(list_compare(lists[1], lists[2]), 1);
  EXPECT_EQ(list_get_nb_elements(nullptr) + result_get_nb_elements(nullptr) +
                result_set_get_total_items(nullptr) + has_key(nullptr, "k"),
            0);
  EXPECT_EQ(list_get(nullptr, 0), result_set_get(nullptr, 0));
  EXPECT_EQ(dict_get(nullptr, "k"), nullptr);
  EXPECT_EQ(dict_remove(nullptr, "k"), -1);
  char *unset = nullptr, **keys = &unset;
  int32_t count = -1;
  dict_keys(nullptr, &keys, &count);
  EXPECT_TRUE(keys != &unset && count == 0);
  free(keys);
  free(dict_values(nullptr));
  list_add(nullptr, lists);
  result_set_add(nullptr, lists);
  result_set_set_total_items(nullptr, 1);
  dict_add(nullptr, "k", lists);
  for (list_s *list : lists)
    list_del(list);
  result_set_del(nullptr);
  dict_free(nullptr);
}

} // namespace
