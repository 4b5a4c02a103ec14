/* The list and the result page: growth, ownership, comparison, their JSON
 * form and reading; null containers. */
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "capture_stdout.h"
#include "value_types.h"

namespace {

int released = 0;
void count_release(void *) {
  released++;
}

list_s *integer_list(const char *name = "Integer") {
  return list_new(name, Integer_deleter, nullptr, nullptr, Integer_copier);
}

std::string elements_of(list_s *list) {
  Json::Value out;
  list_serialize(list, out);
  return render(out["__elements__"]);
}

TEST(List, GrowsByDoublingLendsInPlaceAndDeletesEachElement) {
  Integer cells[17];
  list_s *list = list_new("Integer", count_release, nullptr, nullptr, nullptr);
  EXPECT_EQ(list->capacity, 4);
  for (int32_t i = 0; i < 17; i++) {
    list_add(list, &cells[i]); // no copier: the handle itself
    if (i == 3 || i == 4) {    // full, then doubled
      EXPECT_EQ(list->capacity, 4 * (i - 2));
    }
  }
  EXPECT_EQ(list->capacity, 32);
  ASSERT_EQ(list_get_nb_elements(list), 17);
  for (int32_t i = 0; i < 17; i++)
    EXPECT_EQ(list_get(list, i), &cells[i]);
  EXPECT_EQ(list_get(list, 17), nullptr);
  EXPECT_EQ(list_get(list, -1), nullptr);
  released = 0;
  list_del(list);
  EXPECT_EQ(released, 17);
}

TEST(List, AddsCopiesOrTakesOverAndCopiesDeeplyOrShares) {
  list_s *list = integer_list();
  Integer mine = {7};
  list_add(list, &mine); // copied: `mine` stays ours
  EXPECT_NE(list_get(list, 0), &mine);
  Integer *given = static_cast<Integer *>(malloc(sizeof(Integer)));
  given->value = 8;
  list_add_copy(list, given, VELMORA_FALSE); // taken over
  EXPECT_EQ(list_get(list, 1), given);
  list_add_copy(list, &mine, static_cast<bool_t>(7)); // non-zero copies
  result_set_add(nullptr, &mine);
  EXPECT_EQ(elements_of(list), "[7,8,7]");
  list_del(list);

  list_s *ips =
      list_new("IP", IP_deleter, IP_deserialize, IP_serialize, IP_copier);
  list_add_copy(ips, ip_cell("a"), VELMORA_FALSE);
  void *copy = nullptr;
  list_copier(&copy, ips);
  EXPECT_NE(list_get(static_cast<list_s *>(copy), 0), list_get(ips, 0));
  EXPECT_NE(static_cast<list_s *>(copy)->sub_type, ips->sub_type);
  list_del(ips);
  EXPECT_EQ(elements_of(static_cast<list_s *>(copy)),
            R"([{"__type__":"IP","__value__":"a"}])");
  list_del(copy);

  list_s *shared = list_new("Integer", nullptr, nullptr, nullptr, nullptr);
  list_add(shared, &mine);
  list_copier(&copy, shared);
  EXPECT_EQ(list_get(static_cast<list_s *>(copy), 0), &mine);
  list_del(copy);
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
               {"Integer", 1, "Boolean", 1, -1},
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

/* Over `out`'s old members: bare native values (a null one is null),
 * envelopes through the serializer, null for any other element. */
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
      {"Unicode",
       nullptr,
       {const_cast<char *>("h\xc3\xa9"), nullptr},
       R"(["h\u00e9",null])"},
      {"Opaque", nullptr, {numbers}, "[null]"},
      {"IP", IP_serialize, {ip}, R"([{"__type__":"IP","__value__":"::1"}])"}};
  for (const auto &c : cases) {
    result_set_s *page =
        result_set_new(c.sub_type, nullptr, nullptr, c.serializer, nullptr);
    for (void *element : c.elements)
      result_set_add(page, element);
    result_set_set_total_items(page, 7);
    for (value_serializer write : {list_serialize, result_set_serialize}) {
      const bool list = write == list_serialize;
      Json::Value out = json(R"({"extra":5,"__elements__":[9,9,9]})");
      EXPECT_EQ(write(list ? static_cast<void *>(page->list) : page, out),
                &out);
      EXPECT_EQ(render(out), std::string(R"({"__elements__":)") + c.written +
                                 R"(,"__sub_type__":")" + c.sub_type +
                                 (list ? R"(","__type__":"List")"
                                       : R"(","__total_items__":7,)"
                                         R"("__type__":"ResultSet")") +
                                 R"(,"extra":5})");
    }
    result_set_del(page);
  }
  IP_deleter(ip);
}

/* A list reads what its sub-type accepts, from an array only, and entries
 * it can convert; a page also reads the total, accepted or not. */
TEST(List, ReadsWhatItsSubTypeAcceptsAndCanReach) {
  const struct {
    const char *list_type, *source;
    bool accepted;
    int32_t added, total;
  } cases[] = {
      {"Integer",
       R"({"__sub_type__":"Integer","__elements__":[1],"__total_items__":40})",
       true, 1, 40},
      {"Integer", R"({"__sub_type__":"Int","__elements__":[1,2]})", true, 2,
       -1},
      {"Integer", R"({"__sub_type__":"","__elements__":[1]})", true, 1, -1},
      {"Integer",
       R"({"__sub_type__":"Integers","__elements__":[1],"__total_items__":7})",
       false, 0, 7},
      {"Integer", R"({"__sub_type__":"nteger","__elements__":[1]})", false, 0,
       -1},
      {"Integer", R"({"__elements__":[1]})", false, 0, -1},
      {"Integer", "null", false, 0, -1},
      {"UnknownThing", R"({"__elements__":[1]})", true, 0, -1},
      {"Integer", R"({"__sub_type__":"Integer","__total_items__":null})", true,
       0, 0},
      {"Integer", R"({"__sub_type__":"Integer","__elements__":7})", true, 0,
       -1},
      {"Integer", R"({"__sub_type__":"Integer","__elements__":{"0":1}})", true,
       0, -1}};
  for (const auto &c : cases) {
    list_s *list = integer_list(c.list_type);
    result_set_s *page = result_set_new(c.list_type, Integer_deleter, nullptr,
                                        nullptr, Integer_copier);
    const Json::Value source = json(c.source);
    EXPECT_EQ(capture_stdout([&] {
                EXPECT_EQ(list_deserialize(list, source), list);
                EXPECT_EQ(result_set_deserialize(page, source), page);
              }),
              c.accepted ? "" : "Out the loopOut the loop")
        << c.source;
    EXPECT_EQ(list_get_nb_elements(list), c.added) << c.source;
    EXPECT_EQ(result_get_nb_elements(page), c.added) << c.source;
    EXPECT_EQ(result_set_get_total_items(page), c.total) << c.source;
    list_del(list);
    result_set_del(page);
  }
}

TEST(List, ReadsAppendAndOutliveTheSource) {
  const struct {
    int type;
    const char *elements, *written;
  } cases[] = {
      {UNICODE, R"(["one","t\u00e9",null,-3])", R"(["one","t\u00e9","","-3"])"},
      {UNICODE_READ, R"(["one",null,-3])", R"(["one","","-3"])"},
      {BOOLEAN, "[true,false,2]", "[true,false,true]"},
      {IPS, R"([{"__value__":"::1"}])",
       R"([{"__type__":"IP","__value__":"::1"}])"}};
  for (const auto &c : cases) {
    const value_type &t = value_types[c.type];
    list_s *list = list_new(t.name, t.release, t.read, t.write, t.copy);
    void *copy = nullptr;
    {
      const Json::Value source =
          json(std::string(R"({"__sub_type__":")") + t.name +
               R"(","__elements__":)" + c.elements + "}");
      list_deserialize(list, source);
      list_copier(&copy, list);
      list_deserialize(static_cast<list_s *>(copy), source); // appended
    }
    list_del(list);
    const std::string once(c.written + 1, strlen(c.written) - 2);
    EXPECT_EQ(elements_of(static_cast<list_s *>(copy)),
              "[" + once + "," + once + "]");
    list_del(copy);
  }

  /* Positions an array was never given read as null; an entry that cannot
   * be converted raises and keeps what came before it. */
  Json::Value sparse;
  sparse["__sub_type__"] = "Integer";
  sparse["__elements__"][1] = 5;
  sparse["__elements__"][3] = "x";
  list_s *integers = integer_list();
  EXPECT_ANY_THROW(list_deserialize(integers, sparse));
  EXPECT_EQ(elements_of(integers), "[0,5,0]");
  list_del(integers);
}

TEST(ResultSet, HoldsItsTotalAndCopiesLikeTheList) {
  result_set_s *page =
      result_set_new("IP", IP_deleter, IP_deserialize, IP_serialize, IP_copier);
  EXPECT_EQ(result_set_get_total_items(page), 0);
  void *mine = ip_cell("a");
  result_set_add(page, mine); // copied: `mine` stays ours
  IP_deleter(mine);
  result_set_set_total_items(page, -5);
  void *slot = nullptr;
  resultset_copier(&slot, page);
  result_set_s *copy = static_cast<result_set_s *>(slot);
  EXPECT_NE(result_set_get(copy, 0), result_set_get(page, 0));
  EXPECT_EQ(result_set_get(copy, 1), nullptr);
  result_set_del(page);
  EXPECT_EQ(result_get_nb_elements(copy), 1);
  EXPECT_EQ(result_set_get_total_items(copy), -5);
  EXPECT_STREQ(ip_getValue(result_set_get(copy, 0)), "a");
  result_set_del(copy);
}

/* Given a null container, nothing is written and nothing read. */
TEST(List, NullContainersDoNothing) {
  list_s *list = integer_list();
  Json::Value out = json(R"({"a":1})");
  for (value_serializer write :
       {list_serialize, result_set_serialize, dict_serialize}) {
    EXPECT_EQ(write(nullptr, out), write == dict_serialize ? nullptr : &out);
    void *slot = &slot;
    (write == list_serialize   ? list_copier
     : write == dict_serialize ? dict_copier
                               : resultset_copier)(&slot, nullptr);
    EXPECT_EQ(slot, nullptr);
  }
  EXPECT_EQ(render(out), R"({"a":1})");
  EXPECT_EQ(list_deserialize(nullptr, out), nullptr);
  EXPECT_EQ(result_set_deserialize(nullptr, out), nullptr);
  EXPECT_EQ(dict_deserialize(nullptr, out), nullptr);
  EXPECT_EQ(list_compare(list, nullptr), -1);
  EXPECT_EQ(list_compare(nullptr, list), -1);
  EXPECT_EQ(list_get_nb_elements(nullptr) + result_get_nb_elements(nullptr) +
                result_set_get_total_items(nullptr) + has_key(nullptr, "k"),
            0);
  EXPECT_EQ(list_get(nullptr, 0), result_set_get(nullptr, 0));
  EXPECT_EQ(dict_get(nullptr, "k"), nullptr);
  EXPECT_EQ(dict_remove(nullptr, "k"), -1);
  list_add(nullptr, list);
  result_set_set_total_items(nullptr, 1);
  dict_add(nullptr, "k", list);
  list_del(nullptr);
  result_set_del(nullptr);
  dict_free(nullptr);
  list_del(list);
}

} // namespace
