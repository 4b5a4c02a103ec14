/* The list: growth, ownership, comparison, its JSON form and reading. */
#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "capture_stdout.h"
#include "container_support.h"
#include "velmora/values.h"

namespace {

using namespace container_test;

list_s *integer_list(const char *name = "Integer") {
  return list_new(name, Integer_deleter, nullptr, nullptr, Integer_copier);
}

std::vector<int32_t> integers_of(list_s *list) {
  std::vector<int32_t> values;
  for (int32_t i = 0; i < list_get_nb_elements(list); i++)
    values.push_back(static_cast<Integer *>(list_get(list, i))->value);
  return values;
}

TEST(List, CapacityDoublesAndHandlesStayInPlace) {
  Integer cells[17];
  list_s *list = list_new("Integer", nullptr, nullptr, nullptr, nullptr);
  EXPECT_EQ(list->capacity, 4);
  EXPECT_EQ(list_get(list, 0), nullptr);
  const int32_t capacity_after[] = {4,  4,  4,  4,  8,  8,  8,  8, 16,
                                    16, 16, 16, 16, 16, 16, 16, 32};
  for (int32_t i = 0; i < 17; i++) {
    list_add(list, &cells[i]);
    EXPECT_EQ(list->capacity, capacity_after[i]) << "after " << i + 1;
  }
  ASSERT_EQ(list_get_nb_elements(list), 17);
  for (int32_t i = 0; i < 17; i++)
    EXPECT_EQ(list_get(list, i), &cells[i]);
  EXPECT_EQ(list_get(list, 17), nullptr);
  EXPECT_EQ(list_get(list, -1), nullptr);
  list_del(list); // no deleter: the stack cells are left alone
}

TEST(List, CopiesThroughTheCopierTakesOverOrShares) {
  list_s *list = integer_list();
  Integer mine = {7};
  list_add(list, &mine); // copied: `mine` stays ours
  EXPECT_NE(list_get(list, 0), &mine);
  Integer *given = static_cast<Integer *>(malloc(sizeof(Integer)));
  given->value = 8;
  list_add_copy(list, given, VELMORA_FALSE); // taken over
  EXPECT_EQ(list_get(list, 1), given);
  list_add_copy(list, &mine, static_cast<bool_t>(7)); // non-zero copies
  EXPECT_EQ(integers_of(list), (std::vector<int32_t>{7, 8, 7}));
  list_del(list);

  list_s *ips =
      list_new("IP", IP_deleter, IP_deserialize, IP_serialize, IP_copier);
  list_add_copy(ips, ip_cell("a"), VELMORA_FALSE);
  void *slot = nullptr;
  list_copier(&slot, ips);
  list_s *copy = static_cast<list_s *>(slot);
  EXPECT_NE(list_get(copy, 0), list_get(ips, 0));
  EXPECT_NE(copy->sub_type, ips->sub_type);
  list_del(ips);
  EXPECT_STREQ(ip_getValue(list_get(copy, 0)), "a");
  list_del(copy);

  list_s *shared = list_new("Integer", nullptr, nullptr, nullptr, nullptr);
  list_add(shared, &mine);
  list_copier(&slot, shared);
  EXPECT_EQ(list_get(static_cast<list_s *>(slot), 0), &mine);
  list_del(slot);
  list_del(shared);
}

TEST(List, CompareLooksAtSubTypeThenCountNeverElements) {
  const struct {
    const char *a;
    int32_t a_count;
    const char *b;
    int32_t b_count, expected;
  } cases[] = {{"Integer", 2, "Integer", 3, -2},
               {"Integer", 2, "Integer", 2, 1},
               {"Integer", 1, "Boolean", 2, -1},
               {"Int", 0, "Integer", 0, -1}};
  for (const auto &c : cases) {
    list_s *a = integer_list(c.a), *b = integer_list(c.b);
    for (int32_t v = 0; v < c.a_count; v++)
      list_add(a, &v);
    for (int32_t v = 10; v < 10 + c.b_count; v++)
      list_add(b, &v);
    EXPECT_EQ(list_compare(a, b), c.expected) << c.a << " vs " << c.b;
    list_del(a);
    list_del(b);
  }
}

TEST(List, WritesBareNativeValuesEnvelopesOrNull) {
  Integer numbers[] = {{3}, {INT32_MIN}};
  Boolean flags[] = {{1}, {0}, {2}, {0x100}};
  void *ip = ip_cell("::1");
  const struct {
    const char *sub_type;
    value_serializer serializer;
    std::vector<void *> elements;
    const char *written;
  } cases[] = {
      {"Integer", nullptr, {}, "[]"},
      {"Integer", nullptr, {&numbers[0], &numbers[1]}, "[3,-2147483648]"},
      /* Only the low-order byte of a Boolean cell decides. */
      {"Boolean",
       nullptr,
       {&flags[0], &flags[1], &flags[2], &flags[3]},
       "[true,false,true,false]"},
      /* A null native element is null, and so is every element of a type
       * that is neither native nor serializable. */
      {"Unicode",
       nullptr,
       {const_cast<char *>("h\xc3\xa9"), nullptr},
       R"(["h\u00e9",null])"},
      {"Opaque", nullptr, {numbers}, "[null]"},
      {"IP", IP_serialize, {ip}, R"([{"__type__":"IP","__value__":"::1"}])"}};
  for (const auto &c : cases) {
    list_s *list =
        list_new(c.sub_type, nullptr, nullptr, c.serializer, nullptr);
    for (void *element : c.elements)
      list_add(list, element);
    Json::Value out = parse(R"({"extra":5,"__elements__":[9,9,9]})");
    EXPECT_EQ(list_serialize(list, out), &out);
    EXPECT_EQ(render(out), std::string(R"({"__elements__":)") + c.written +
                               R"(,"__sub_type__":")" + c.sub_type +
                               R"(","__type__":"List","extra":5})");
    list_del(list);
  }
  IP_deleter(ip);
}

/* `added`: an accepted list reads only an array, and only entries it can
 * convert: natively or through its deserializer. */
TEST(List, ReadsWhatItsSubTypeAcceptsAndCanReach) {
  const struct {
    const char *list_type, *source;
    bool accepted;
    int32_t added;
  } cases[] = {
      {"Integer", R"({"__sub_type__":"Integer","__elements__":[1]})", true, 1},
      {"Integer", R"({"__sub_type__":"Int","__elements__":[1,2]})", true, 2},
      {"Integer", R"({"__sub_type__":"","__elements__":[1]})", true, 1},
      {"Integer", R"({"__sub_type__":"Integers","__elements__":[1]})", false,
       0},
      {"Integer", R"({"__sub_type__":"nteger","__elements__":[1]})", false, 0},
      {"Integer", R"({"__elements__":[1]})", false, 0},
      {"Integer", "null", false, 0},
      {"UnknownThing", R"({"__elements__":[1]})", true, 0},
      {"Integer", R"({"__sub_type__":"Integer"})", true, 0},
      {"Integer", R"({"__sub_type__":"Integer","__elements__":7})", true, 0},
      {"Integer", R"({"__sub_type__":"Integer","__elements__":{"0":1}})", true,
       0}};
  for (const auto &c : cases) {
    list_s *list = integer_list(c.list_type);
    list_s *result = nullptr;
    EXPECT_EQ(capture_stdout(
                  [&] { result = list_deserialize(list, parse(c.source)); }),
              c.accepted ? "" : "Out the loop")
        << c.source;
    EXPECT_EQ(result, list);
    EXPECT_EQ(list_get_nb_elements(list), c.added) << c.source;
    list_del(list);
  }
}

TEST(List, ReadsAppendAndOutliveTheSource) {
  list_s *texts =
      list_new("Unicode", string_deleter, nullptr, nullptr, text_copier());
  {
    Json::Value source =
        parse(R"({"__sub_type__":"Unicode","__elements__":["one","two"]})");
    list_deserialize(texts, source);
    list_deserialize(texts, source); // read twice: appended twice
  }
  ASSERT_EQ(list_get_nb_elements(texts), 4);
  EXPECT_NE(list_get(texts, 0), list_get(texts, 2));
  EXPECT_STREQ(static_cast<char *>(list_get(texts, 3)), "two");
  list_del(texts);

  list_s *ips =
      list_new("IP", IP_deleter, IP_deserialize, IP_serialize, IP_copier);
  list_deserialize(ips, parse(R"({"__sub_type__":"IP","__elements__":)"
                              R"([{"__value__":"::1"}]})"));
  EXPECT_STREQ(ip_getValue(list_get(ips, 0)), "::1");
  list_del(ips);

  list_s *booleans =
      list_new("Boolean", Boolean_deleter, nullptr, nullptr, Boolean_copier);
  list_deserialize(booleans, parse(R"({"__sub_type__":"Boolean",)"
                                   R"("__elements__":[true,false]})"));
  void *copy = nullptr;
  list_copier(&copy, booleans);
  list_del(booleans);
  Json::Value out;
  list_serialize(copy, out);
  EXPECT_EQ(render(out["__elements__"]), "[true,false]");
  list_del(copy);

  /* Positions an array was never given read as null; an entry that cannot
   * be converted raises and keeps what came before it. */
  Json::Value sparse;
  sparse["__sub_type__"] = "Integer";
  sparse["__elements__"][1] = 5;
  sparse["__elements__"][3] = "x";
  list_s *integers = integer_list();
  EXPECT_ANY_THROW(list_deserialize(integers, sparse));
  EXPECT_EQ(integers_of(integers), (std::vector<int32_t>{0, 5, 0}));
  list_del(integers);
}

} // namespace
