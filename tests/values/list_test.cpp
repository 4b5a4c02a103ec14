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

list_s *tag_list() {
  return list_new("Tag", tag_deleter, tag_deserialize, tag_serialize,
                  tag_copier);
}

std::vector<int32_t> integers_of(list_s *list) {
  std::vector<int32_t> values;
  for (int32_t i = 0; i < list_get_nb_elements(list); i++)
    values.push_back(static_cast<Integer *>(list_get(list, i))->value);
  return values;
}

std::string serialized(list_s *list) {
  Json::Value out;
  EXPECT_EQ(list_serialize(list, out), &out);
  return render(out);
}

TEST(ListGrowth, CapacityDoublesAndHandlesStayInPlace) {
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

TEST(ListOwnership, CopiedOrTakenOverAndCopiedListsFollowTheCopier) {
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

  list_s *tags = tag_list();
  list_add_copy(tags, tag_new("a"), VELMORA_FALSE);
  void *slot = nullptr;
  list_copier(&slot, tags);
  list_s *copy = static_cast<list_s *>(slot);
  EXPECT_NE(list_get(copy, 0), list_get(tags, 0));
  EXPECT_NE(copy->sub_type, tags->sub_type);
  EXPECT_EQ(copy->copier, tags->copier);
  list_del(tags);
  EXPECT_STREQ(tag_label(list_get(copy, 0)), "a"); // outlives the source
  list_del(copy);

  list_s *shared = list_new("Integer", nullptr, nullptr, nullptr, nullptr);
  list_add(shared, &mine);
  list_copier(&slot, shared);
  EXPECT_EQ(list_get(static_cast<list_s *>(slot), 0), &mine);
  list_del(slot);
  list_del(shared);
}

TEST(ListCompare, SubTypeThenCountNeverElements) {
  const struct {
    const char *a;
    std::vector<int32_t> a_values;
    const char *b;
    std::vector<int32_t> b_values;
    int32_t expected;
  } cases[] = {
      {"Integer", {1, 2}, "Integer", {1, 2, 3}, -2},
      {"Integer", {1, 2}, "Integer", {5, 6}, 1},
      {"Integer", {1, 2}, "Boolean", {1, 0}, -1},
      {"Integer", {1}, "Boolean", {1, 0}, -1},
      {"Int", {}, "Integer", {}, -1},
  };
  for (const auto &c : cases) {
    list_s *a = integer_list(c.a), *b = integer_list(c.b);
    for (int32_t v : c.a_values)
      list_add(a, &v);
    for (int32_t v : c.b_values)
      list_add(b, &v);
    EXPECT_EQ(list_compare(a, b), c.expected) << c.a << " vs " << c.b;
    list_del(a);
    list_del(b);
  }
}

TEST(ListSerialize, ElementsAsBareValuesEnvelopesOrNull) {
  list_s *integers = integer_list();
  EXPECT_EQ(
      serialized(integers),
      R"({"__elements__":[],"__sub_type__":"Integer","__type__":"List"})");
  for (int32_t v : {3, INT32_MIN})
    list_add(integers, &v);
  Json::Value out = parse(R"({"extra":5,"__elements__":[9,9,9]})");
  list_serialize(integers, out);
  EXPECT_EQ(
      render(out),
      R"({"__elements__":[3,-2147483648],"__sub_type__":"Integer","__type__":"List","extra":5})");
  list_del(integers);

  // Only the low-order byte of a Boolean cell decides.
  list_s *booleans =
      list_new("Boolean", Boolean_deleter, nullptr, nullptr, Boolean_copier);
  for (int32_t v : {1, 0, 2, 0x100})
    list_add(booleans, &v);
  EXPECT_EQ(
      serialized(booleans),
      R"({"__elements__":[true,false,true,false],"__sub_type__":"Boolean","__type__":"List"})");
  list_del(booleans);

  // A null native element, and any element of a type with no serializer
  // that is not native, is written as null.
  list_s *texts = list_new("Unicode", nullptr, nullptr, nullptr, nullptr);
  list_add(texts, const_cast<char *>("h\xc3\xa9"));
  list_add(texts, nullptr);
  EXPECT_EQ(
      serialized(texts),
      R"({"__elements__":["h\u00e9",null],"__sub_type__":"Unicode","__type__":"List"})");
  list_del(texts);
  list_s *opaque = list_new("Opaque", nullptr, nullptr, nullptr, nullptr);
  list_add(opaque, &out);
  EXPECT_EQ(
      serialized(opaque),
      R"({"__elements__":[null],"__sub_type__":"Opaque","__type__":"List"})");
  list_del(opaque);

  list_s *tags = tag_list();
  list_add_copy(tags, tag_new("x"), VELMORA_FALSE);
  EXPECT_EQ(
      serialized(tags),
      R"({"__elements__":[{"__type__":"Tag","__value__":"x"}],"__sub_type__":"Tag","__type__":"List"})");
  list_del(tags);
}

TEST(ListDeserialize, SubTypeMustBeALeadingPartOfTheListName) {
  // `added`: an accepted "Unknown..." list is not native and has no
  // deserializer, so it reads no entries.
  const struct {
    const char *list_type;
    const char *source;
    bool accepted;
    int32_t added;
  } cases[] = {
      {"Integer", R"({"__sub_type__":"Integer","__elements__":[1]})", true, 1},
      {"Integer", R"({"__sub_type__":"Int","__elements__":[1,2]})", true, 2},
      {"Integer", R"({"__sub_type__":"","__elements__":[1]})", true, 1},
      {"Integer", R"({"__sub_type__":"Integers","__elements__":[1]})", false,
       0},
      {"Integer", R"({"__sub_type__":"nteger","__elements__":[1]})", false, 0},
      {"Integer", R"({"__sub_type__":"Integer, and longer"})", false, 0},
      {"Integer", R"({"__elements__":[1]})", false, 0},
      {"Integer", "null", false, 0},
      {"Unknown", R"({"__elements__":[1]})", true, 0},
      {"UnknownThing", "null", true, 0},
  };
  for (const auto &c : cases) {
    list_s *list = integer_list(c.list_type);
    int32_t zero = 0;
    list_add(list, &zero);
    list_s *result = nullptr;
    std::string printed = capture_stdout(
        [&] { result = list_deserialize(list, parse(c.source)); });
    EXPECT_EQ(result, list);
    EXPECT_EQ(printed, c.accepted ? "" : "Out the loop") << c.source;
    EXPECT_EQ(list_get_nb_elements(list), 1 + c.added) << c.source;
    list_del(list);
  }
}

TEST(ListDeserialize, NativeReadsAppendAndOutliveTheSource) {
  list_s *booleans =
      list_new("Boolean", Boolean_deleter, nullptr, nullptr, Boolean_copier);
  list_deserialize(booleans, parse(R"({"__sub_type__":"Boolean",)"
                                   R"("__elements__":[true,false]})"));
  EXPECT_EQ(static_cast<Boolean *>(list_get(booleans, 0))->value, 1);
  EXPECT_EQ(static_cast<Boolean *>(list_get(booleans, 1))->value, 0);
  EXPECT_EQ(
      serialized(booleans),
      R"({"__elements__":[true,false],"__sub_type__":"Boolean","__type__":"List"})");
  list_del(booleans);

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

  // Positions an array was never given read as null; an entry that cannot
  // be converted raises and keeps what came before it.
  Json::Value sparse;
  sparse["__sub_type__"] = "Integer";
  sparse["__elements__"][1] = 5;
  sparse["__elements__"][3] = "x";
  list_s *integers = integer_list();
  EXPECT_ANY_THROW(list_deserialize(integers, sparse));
  EXPECT_EQ(integers_of(integers), (std::vector<int32_t>{0, 5, 0}));
  list_del(integers);
}

TEST(ListDeserialize, EnvelopedElementsRoundTrip) {
  list_s *longs = list_new("Long", Long_deleter, Long_deserialize,
                           Long_serialize, Long_copier);
  for (int64_t v : {INT64_MIN, int64_t{42}}) {
    void *cell = Long_new();
    Long_setValue(cell, v);
    list_add(longs, cell); // copied
    Long_deleter(cell);
  }
  Json::Value out;
  list_serialize(longs, out);
  EXPECT_EQ(render(out), R"({"__elements__":[{"__type__":"Long","__value__":)"
                         R"("-9223372036854775808"},{"__type__":"Long",)"
                         R"("__value__":"42"}],"__sub_type__":"Long",)"
                         R"("__type__":"List"})");
  list_deserialize(longs, out);
  ASSERT_EQ(list_get_nb_elements(longs), 4);
  EXPECT_EQ(Long_getValue(list_get(longs, 2)), INT64_MIN);
  EXPECT_EQ(Long_getValue(list_get(longs, 3)), 42);
  list_del(longs);
}

TEST(ListDeserialize, SourcesWithNothingToReadAddNothing) {
  const char *const sources[] = {
      R"({"__sub_type__":"Integer"})",
      R"({"__sub_type__":"Integer","__elements__":"12"})",
      R"({"__sub_type__":"Integer","__elements__":7})",
      R"({"__sub_type__":"Integer","__elements__":{"0":1,"1":2}})",
  };
  for (const char *text : sources) {
    list_s *list = integer_list();
    EXPECT_EQ(capture_stdout([&] { list_deserialize(list, parse(text)); }), "");
    EXPECT_EQ(list_get_nb_elements(list), 0) << text;
    list_del(list);
  }
  // Neither native nor given a deserializer: entries are not read.
  list_s *opaque = list_new("Opaque", nullptr, nullptr, nullptr, nullptr);
  list_deserialize(opaque, parse(R"({"__sub_type__":"","__elements__":[1]})"));
  EXPECT_EQ(list_get_nb_elements(opaque), 0);
  list_del(opaque);
}

} // namespace
