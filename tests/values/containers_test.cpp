/* List, result page and dictionary: sharing, their JSON form and reading,
 * the dictionary's ring and writing order; null containers. */
#include <stdexcept>
#include <vector>

#include <gtest/gtest.h>

#include "capture_stdout.h"
#include "value_types.h"

namespace {

enum kind { LIST, PAGE, DICT };
int released = 0;
void count_release(void *) {
  released++;
}
void count_free(void *value) {
  released++;
  free(value);
}

void *make(kind k, const char *name, const value_type &t) {
  if (k == LIST)
    return list_new(name, t.release, t.read, t.write, t.copy);
  if (k == PAGE)
    return result_set_new(name, t.release, t.read, t.write, t.copy);
  return dict_new(name, t.release, t.read, t.write, t.copy);
}

void drop(kind k, void *c) {
  (k == LIST ? list_del : k == PAGE ? result_set_del : dict_deleter)(c);
}

void *read(kind k, void *c, const Json::Value &in) {
  if (k == LIST)
    return list_deserialize(static_cast<list_s *>(c), in);
  if (k == PAGE)
    return result_set_deserialize(static_cast<result_set_s *>(c), in);
  return dict_deserialize(static_cast<dict_s *>(c), in);
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
  for (auto *e = dict->first; e != head; previous = e, e = e->next, i++)
    EXPECT_TRUE(e->prev == previous && e->key == lent[i] && e->key == keys[i]);
  EXPECT_TRUE(dict->last == previous && i == count);
  free(lent);
}

/* With a copier a container holds its own copies (the caller keeps its
 * value), without one the handles given, past any growth; copies of
 * containers follow, and every element held is deleted with them. */
TEST(List, AddsAndCopiesThroughTheCopierOrShares) {
  for (value_copier copier : {Integer_copier, value_copier()}) {
    Integer mine[5] = {{5}};
    const value_type t = {"", copier ? count_free : count_release, 0, 0,
                          copier};
    void *held[] = {make(LIST, "Integer", t), make(PAGE, "Integer", t),
                    make(DICT, "Integer", t)},
         *copies[3];
    char key[] = "key";
    for (Integer &cell : mine)
      list_add(static_cast<list_s *>(held[LIST]), &cell);
    result_set_add(static_cast<result_set_s *>(held[PAGE]), mine);
    dict_add(static_cast<dict_s *>(held[DICT]), key, mine);
    key[0] = 'X'; // the key is the dictionary's own
    result_set_set_total_items(static_cast<result_set_s *>(held[PAGE]), -5);
    list_copier(&copies[LIST], held[LIST]);
    resultset_copier(&copies[PAGE], held[PAGE]);
    dict_copier(&copies[DICT], held[DICT]);
    EXPECT_EQ(list_get(static_cast<list_s *>(held[LIST]), 4) == &mine[4],
              copier == nullptr); // past the array's growth
    mine[0].value = 6;            // copies do not follow
    std::string all;
    released = 0;
    for (kind k : {LIST, PAGE, DICT}) {
      all += shown(k, held[k]) + shown(k, copies[k]);
      drop(k, held[k]);
      drop(k, copies[k]);
    }
    EXPECT_EQ(all,
              copier
                  ? R"([5,0,0,0,0][5,0,0,0,0][5] -5[5] -5{"key":5}{"key":5})"
                  : R"([6,0,0,0,0][6,0,0,0,0][6] -5[6] -5{"key":6}{"key":6})");
    EXPECT_EQ(released, 14); // every element held, each once
  }
  Integer *given = static_cast<Integer *>(calloc(1, sizeof(Integer)));
  list_s *list = list_new("Integer", Integer_deleter, 0, 0, Integer_copier);
  list_add_copy(list, given, VELMORA_FALSE);          // given over
  list_add_copy(list, given, static_cast<bool_t>(7)); // non-zero copies
  EXPECT_TRUE(list_get(list, 0) == given && list_get(list, 1) != given &&
              list_get(list, 2) == nullptr && list_get(list, -1) == nullptr);
  list_del(list);
}

/* Bare native values (a null one is null), envelopes through the
 * serializer, null for any other element; over `out`'s old members. */
TEST(List, WritesBareNativeValuesEnvelopesOrNull) {
  Integer n[] = {{3}, {INT32_MIN}};
  Boolean b[] = {{1}, {0}, {2}, {0x100}}; // the low-order byte decides
  void *ip = IP_deserialize(json(R"({"__value__":"::1"})"));
  const struct {
    const char *sub_type;
    std::vector<void *> elements;
    const char *written;
  } cases[] = {{"Integer", {n, n + 1}, "[3,-2147483648]"},
               {"Boolean", {b, b + 1, b + 2, b + 3}, "[true,false,true,false]"},
               {"Unicode", {(char *)"h\xc3\xa9", 0}, R"(["h\u00e9",null])"},
               {"Opaque", {n}, "[null]"},
               {"IP", {ip}, R"([{"__type__":"IP","__value__":"::1"}])"}};
  for (const auto &c : cases) {
    result_set_s *page = result_set_new(
        c.sub_type, 0, 0, c.elements[0] == ip ? IP_serialize : nullptr, 0);
    for (void *element : c.elements)
      result_set_add(page, element);
    Json::Value out = json(R"({"extra":5,"__elements__":[9,9,9]})");
    EXPECT_EQ(result_set_serialize(page, out), &out);
    EXPECT_EQ(render(out),
              std::string(R"({"__elements__":)") + c.written +
                  R"(,"__sub_type__":")" + c.sub_type +
                  R"(","__total_items__":0,"__type__":"ResultSet",)"
                  R"("extra":5})");
    result_set_del(page);
  }
  IP_deleter(ip);
}

/* A source read twice: what a list or page printed ("!" for "Out the loop"
 * each time), then what the container holds. A list reads an array whose
 * "__sub_type__" is a leading part of its own (absent is "Unknown"), a page
 * also its total, a dictionary an object's members. Types other than the
 * native ones need their deserializer. An entry that cannot be converted
 * raises at the first read ("#"), keeping what came before it. */
TEST(List, ReadsWhatItsSubTypeAcceptsAndCanReach) {
  const struct {
    kind k;
    int type;
    const char *sub_type, *elements, *held, *name = nullptr;
  } cases[] = {
      {LIST, INTEGER, R"("Int")", "[1,-2]", "[1,-2,1,-2]"},
      {LIST, INTEGER, R"("Integers")", "[1]", "![]"},
      {LIST, INTEGER, R"("nteger")", "[1]", "![]"},
      {LIST, INTEGER, nullptr, "[1]", "![]"},
      {LIST, INTEGER, nullptr, "[1]", "[]", "Unknown type"},
      {LIST, INTEGER, R"("")", "[1]", "[]", "Other"},
      {LIST, INTEGER, R"("")", R"({"0":1})", "[]"},
      {LIST, UNICODE, R"("")", R"(["\u00e9",null,-3])",
       R"(["\u00e9","","-3","\u00e9","","-3"])"},
      {LIST, BOOLEAN, R"("")", "[2,false]", "[true,false,true,false]"},
      {LIST, IPS, R"("")", R"([{"__value__":1}])",
       R"([{"__type__":"IP","__value__":"1"},{"__type__":"IP","__value__":"1"}])"},
      /* Members after the elements: the page's total. */
      {PAGE, INTEGER, R"("")", R"([4],"__total_items__":40)", "[4,4] 40"},
      {PAGE, INTEGER, R"("x")", R"([],"__total_items__":7)", "![] 7"},
      {PAGE, INTEGER, R"("")", "7", "[] -1"},
      {DICT, UNICODE_READ, R"("")", R"({"zz":"\u00e9","aa":null,"b":-3})",
       R"({"aa":"","b":"-3","zz":"\u00e9"})"},
      {DICT, INTEGER, R"("Int")", R"({"a":1})", R"({"a":1})"},
      {DICT, INTEGER, R"("Ints")", R"({"a":1})", "{}"},
      {DICT, INTEGER, R"("")", "[1]", "{}"},
      {DICT, INTEGER, R"("")", R"({"a":1,"b":"x"})", R"(#{"a":1})"}};
  for (const auto &c : cases) {
    const value_type &t = value_types[c.type];
    void *held = make(c.k, c.name ? c.name : t.name, t);
    const std::string sub_type =
        c.sub_type ? std::string(R"("__sub_type__":)") + c.sub_type + "," : "";
    const Json::Value in =
        json("{" + sub_type + R"("__elements__":)" + c.elements + "}");
    std::string printed = capture_stdout([&] {
      if (c.held[0] == '#')
        EXPECT_ANY_THROW(read(c.k, held, in));
      else
        for (int twice : {0, 1})
          EXPECT_EQ(read(c.k, held, in), held) << twice;
    });
    EXPECT_EQ(printed + shown(c.k, held),
              (c.held[0] == '!' ? "Out the loopOut the loop" : "") +
                  std::string(c.held + (c.held[0] == '!' || c.held[0] == '#')))
        << c.elements;
    drop(c.k, held);
  }
}

/* Positions a sparse array never set read as null. */
TEST(List, PositionsNeverSetReadAsNull) {
  Json::Value sparse = json(R"({"__sub_type__":""})");
  sparse["__elements__"][2] = 5;
  sparse["__elements__"][4] = "x";
  void *list = make(LIST, "Integer", value_types[INTEGER]);
  EXPECT_ANY_THROW(read(LIST, list, sparse));
  EXPECT_EQ(shown(LIST, list), "[0,0,5,0]");
  drop(LIST, list);
}

/* Lookups and removal find the oldest entry of a key; each entry removed
 * or freed releases its value through the deleter. */
TEST(Dict, RingHoldsWhereverEntriesAreRemoved) {
  dict_s *dict = dict_new("Integer", count_release, 0, 0, 0);
  dict_add(dict, nullptr, dict); // a null key adds nothing
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
  const char *keys[] = {"abcdefgh",    "abcdefghi",    "abcdefg",  "",
                        "\xff",        "abcdefgh\x80", "\xff\x01", "abcdefghj",
                        "\377234567A", "\377234567B"};
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

/* Given a null container, nothing is written, read, copied or found;
 * list_compare looks at sub-types, then counts, never elements. */
TEST(List, NullContainersDoNothingAndCompareByTypeAndCount) {
  Json::Value out = json(R"({"a":1})");
  for (kind k : {LIST, PAGE, DICT}) {
    void *slot = &slot;
    (k == LIST   ? list_copier
     : k == PAGE ? resultset_copier
                 : dict_copier)(&slot, nullptr);
    EXPECT_TRUE(slot == nullptr && read(k, nullptr, out) == nullptr);
    EXPECT_EQ(shown(k, nullptr), k == PAGE ? "null null" : "null");
    drop(k, nullptr);
  }
  EXPECT_TRUE(list_serialize(nullptr, out) == &out &&
              result_set_serialize(nullptr, out) == &out &&
              dict_serialize(nullptr, out) == nullptr &&
              out == json(R"({"a":1})"));
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
                result_set_get_total_items(nullptr) + has_key(nullptr, "k") +
                dict_remove(nullptr, "k"),
            -1);
  for (list_s *list : lists)
    list_del(list);
}

} // namespace
