#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "capture_stdout.h"
#include "container_support.h"
#include "velmora/values.h"

namespace {

Integer *integer(int32_t value) {
  Integer *cell = static_cast<Integer *>(malloc(sizeof *cell));
  cell->value = value;
  return cell;
}

list_s *integer_list() {
  return list_new("Integer", Integer_deleter, nullptr, nullptr, Integer_copier);
}

list_s *tag_list() {
  return list_new("Tag", tag_deleter, tag_deserialize, tag_serialize,
                  tag_copier);
}

int32_t integer_at(list_s *list, int32_t index) {
  return static_cast<Integer *>(list_get(list, index))->value;
}

std::string serialized(list_s *list) {
  Json::Value out;
  EXPECT_EQ(list_serialize(list, out), &out);
  return render(out);
}

/* ---- Growth ----------------------------------------------------------- */

TEST(ListGrowth, StartsEmptyWithFourSlots) {
  list_s *list = integer_list();
  EXPECT_EQ(list_get_nb_elements(list), 0);
  EXPECT_EQ(list->capacity, 4);
  EXPECT_EQ(list_get(list, 0), nullptr);
  EXPECT_STREQ(list->sub_type, "Integer");
  list_del(list);
}

TEST(ListGrowth, CapacityDoublesAndHandlesStayInPlace) {
  Integer cells[17];
  list_s *list = list_new("Integer", nullptr, nullptr, nullptr, nullptr);
  const std::vector<int32_t> expected_capacity = {
      4, 4, 4, 4, 8, 8, 8, 8, 16, 16, 16, 16, 16, 16, 16, 16, 32};
  for (int32_t i = 0; i < 17; i++) {
    cells[i].value = i;
    list_add(list, &cells[i]);
    EXPECT_EQ(list->capacity, expected_capacity[i]) << "after " << i + 1;
  }
  ASSERT_EQ(list_get_nb_elements(list), 17);
  for (int32_t i = 0; i < 17; i++)
    EXPECT_EQ(list_get(list, i), &cells[i]);
  EXPECT_EQ(list_get(list, 17), nullptr);
  EXPECT_EQ(list_get(list, -1), nullptr);
  EXPECT_EQ(list_get(list, INT32_MIN), nullptr);
  list_del(list); // no deleter: the stack cells are not released
}

/* ---- Ownership -------------------------------------------------------- */

TEST(ListOwnership, AddCopiesAndAddCopyZeroTakesOver) {
  list_s *list = integer_list();
  Integer mine = {7};
  list_add(list, &mine);
  EXPECT_NE(list_get(list, 0), &mine);
  EXPECT_EQ(integer_at(list, 0), 7);

  Integer *given = integer(8);
  list_add_copy(list, given, VELMORA_FALSE);
  EXPECT_EQ(list_get(list, 1), given);

  // Any non-zero flag means copy.
  list_add_copy(list, &mine, static_cast<bool_t>(7));
  EXPECT_NE(list_get(list, 2), &mine);
  EXPECT_EQ(integer_at(list, 2), 7);
  list_del(list); // releases the two copies and `given`, never `mine`
}

TEST(ListOwnership, WithoutCopierTheHandleItselfIsStored) {
  list_s *list =
      list_new("Integer", Integer_deleter, nullptr, nullptr, nullptr);
  Integer *cell = integer(1);
  list_add(list, cell);
  EXPECT_EQ(list_get(list, 0), cell);
  list_del(list);
}

TEST(ListOwnership, CopierOfAListWithCopierIsDeep) {
  list_s *source = tag_list();
  void *mine = tag_new("a");
  list_add(source, mine);
  tag_deleter(mine);
  list_add_copy(source, tag_new("b"), VELMORA_FALSE);

  void *slot = nullptr;
  list_copier(&slot, source);
  list_s *copy = static_cast<list_s *>(slot);
  ASSERT_EQ(list_get_nb_elements(copy), 2);
  EXPECT_STREQ(copy->sub_type, "Tag");
  EXPECT_NE(copy->sub_type, source->sub_type);
  EXPECT_EQ(copy->deleter, source->deleter);
  EXPECT_EQ(copy->deserializer, source->deserializer);
  EXPECT_EQ(copy->serializer, source->serializer);
  EXPECT_EQ(copy->copier, source->copier);
  for (int32_t i = 0; i < 2; i++) {
    EXPECT_NE(list_get(copy, i), list_get(source, i));
    EXPECT_STREQ(tag_label(list_get(copy, i)), tag_label(list_get(source, i)));
  }
  list_del(source);
  EXPECT_STREQ(tag_label(list_get(copy, 1)), "b"); // survives the source
  list_del(copy);
}

TEST(ListOwnership, CopierOfAListWithoutCopierSharesHandles) {
  Integer cells[3] = {{1}, {2}, {3}};
  list_s *source = list_new("Integer", nullptr, nullptr, nullptr, nullptr);
  for (Integer &cell : cells)
    list_add(source, &cell);
  void *slot = nullptr;
  list_copier(&slot, source);
  list_s *copy = static_cast<list_s *>(slot);
  ASSERT_EQ(list_get_nb_elements(copy), 3);
  for (int32_t i = 0; i < 3; i++)
    EXPECT_EQ(list_get(copy, i), &cells[i]);
  list_del(copy);
  list_del(source);
}

/* ---- Comparison ------------------------------------------------------- */

TEST(ListCompare, SubTypeThenCountNeverElements) {
  struct Case {
    const char *a_type;
    int32_t a_values[3];
    int32_t a_count;
    const char *b_type;
    int32_t b_values[3];
    int32_t b_count;
    int32_t expected;
  };
  const Case cases[] = {
      {"Integer", {1, 2}, 2, "Integer", {1, 2, 3}, 3, -2},
      {"Integer", {1, 2}, 2, "Integer", {5, 6}, 2, 1},
      {"Integer", {}, 0, "Integer", {}, 0, 1},
      {"Integer", {1, 2}, 2, "Boolean", {1, 0}, 2, -1},
      {"Integer", {1}, 1, "Boolean", {1, 0}, 2, -1},
      {"Int", {1}, 1, "Integer", {1}, 1, -1},
  };
  for (const Case &c : cases) {
    list_s *a =
        list_new(c.a_type, Integer_deleter, nullptr, nullptr, Integer_copier);
    list_s *b =
        list_new(c.b_type, Integer_deleter, nullptr, nullptr, Integer_copier);
    for (int32_t i = 0; i < c.a_count; i++)
      list_add(a, const_cast<int32_t *>(&c.a_values[i]));
    for (int32_t i = 0; i < c.b_count; i++)
      list_add(b, const_cast<int32_t *>(&c.b_values[i]));
    EXPECT_EQ(list_compare(a, b), c.expected)
        << c.a_type << "/" << c.a_count << " vs " << c.b_type << "/"
        << c.b_count;
    list_del(a);
    list_del(b);
  }
}

/* ---- Writing ---------------------------------------------------------- */

TEST(ListSerialize, NativeElementsAsBareValues) {
  list_s *empty = integer_list();
  EXPECT_EQ(
      serialized(empty),
      R"({"__elements__":[],"__sub_type__":"Integer","__type__":"List"})");
  list_del(empty);

  list_s *integers = integer_list();
  for (int32_t v : {3, -1, INT32_MAX, INT32_MIN})
    list_add(integers, &v);
  EXPECT_EQ(
      serialized(integers),
      R"({"__elements__":[3,-1,2147483647,-2147483648],"__sub_type__":"Integer","__type__":"List"})");
  list_del(integers);

  // Only the low-order byte of a Boolean cell decides.
  list_s *booleans =
      list_new("Boolean", Boolean_deleter, nullptr, nullptr, Boolean_copier);
  for (int32_t v : {1, 0, 2, 0x100, -1})
    list_add(booleans, &v);
  EXPECT_EQ(
      serialized(booleans),
      R"({"__elements__":[true,false,true,false,true],"__sub_type__":"Boolean","__type__":"List"})");
  list_del(booleans);

  list_s *texts =
      list_new("Unicode", string_deleter, nullptr, nullptr, text_copier());
  list_add(texts, const_cast<char *>("h\xc3\xa9llo"));
  list_add(texts, const_cast<char *>(""));
  list_add(texts, const_cast<char *>("q\"uote"));
  EXPECT_EQ(
      serialized(texts),
      R"({"__elements__":["h\u00e9llo","","q\"uote"],"__sub_type__":"Unicode","__type__":"List"})");
  list_del(texts);
}

TEST(ListSerialize, SerializerWritesEachEntry) {
  list_s *list = tag_list();
  list_add_copy(list, tag_new("x"), VELMORA_FALSE);
  list_add_copy(list, tag_new("y"), VELMORA_FALSE);
  EXPECT_EQ(
      serialized(list),
      R"({"__elements__":[{"__type__":"Tag","__value__":"x"},{"__type__":"Tag","__value__":"y"}],"__sub_type__":"Tag","__type__":"List"})");
  list_del(list);
}

TEST(ListSerialize, NullWhereNoJsonFormExists) {
  // Not native and no serializer: one null per element.
  Integer cells[2] = {{1}, {2}};
  list_s *opaque = list_new("Opaque", nullptr, nullptr, nullptr, nullptr);
  list_add(opaque, &cells[0]);
  list_add(opaque, &cells[1]);
  EXPECT_EQ(
      serialized(opaque),
      R"({"__elements__":[null,null],"__sub_type__":"Opaque","__type__":"List"})");
  list_del(opaque);

  // A null element of a native list is not read through.
  list_s *texts = list_new("Unicode", nullptr, nullptr, nullptr, nullptr);
  list_add(texts, nullptr);
  EXPECT_EQ(
      serialized(texts),
      R"({"__elements__":[null],"__sub_type__":"Unicode","__type__":"List"})");
  list_del(texts);
}

TEST(ListSerialize, KeepsOtherMembersAndReplacesOldElements) {
  list_s *list = integer_list();
  int32_t one = 1;
  list_add(list, &one);
  Json::Value out =
      parse(R"({"extra":5,"__elements__":[9,9,9],"__type__":"X"})");
  list_serialize(list, out);
  EXPECT_EQ(
      render(out),
      R"({"__elements__":[1],"__sub_type__":"Integer","__type__":"List","extra":5})");
  list_del(list);
}

/* ---- Reading: sub-type acceptance --------------------------------------- */

TEST(ListDeserialize, SubTypeMustBeALeadingPartOfTheListName) {
  struct Case {
    const char *list_type;
    const char *source;
    bool accepted;
  };
  const Case cases[] = {
      {"Integer", R"({"__sub_type__":"Integer","__elements__":[1]})", true},
      {"Integer", R"({"__sub_type__":"Int","__elements__":[1]})", true},
      {"Integer", R"({"__sub_type__":"","__elements__":[1]})", true},
      {"Integer", R"({"__sub_type__":null,"__elements__":[1]})", true},
      {"Integer", R"({"__sub_type__":"Integers","__elements__":[1]})", false},
      {"Integer", R"({"__sub_type__":"integer","__elements__":[1]})", false},
      {"Integer", R"({"__sub_type__":"nteger","__elements__":[1]})", false},
      {"Integer", R"({"__elements__":[1]})", false},
      {"Integer", "null", false},
      {"Unknown", R"({"__elements__":[1]})", true},
      {"UnknownThing", "null", true},
      {"Unknow", R"({"__elements__":[1]})", false},
  };
  for (const Case &c : cases) {
    list_s *list = list_new(c.list_type, Integer_deleter, nullptr, nullptr,
                            Integer_copier);
    Json::Value source = parse(c.source);
    list_s *result = nullptr;
    std::string printed =
        capture_stdout([&] { result = list_deserialize(list, source); });
    EXPECT_EQ(result, list);
    EXPECT_EQ(printed, c.accepted ? "" : "Out the loop")
        << c.list_type << " " << c.source;
    list_del(list);
  }
}

TEST(ListDeserialize, AcceptedSourceIsReadThroughNativeOrDeserializer) {
  // A non-native list reads with its deserializer.
  list_s *tags = tag_list();
  Json::Value source = parse(
      R"({"__sub_type__":"Tag","__elements__":[{"__value__":"p"},{"__value__":"q"}]})");
  EXPECT_EQ(capture_stdout([&] { list_deserialize(tags, source); }), "");
  ASSERT_EQ(list_get_nb_elements(tags), 2);
  EXPECT_STREQ(tag_label(list_get(tags, 0)), "p");
  EXPECT_STREQ(tag_label(list_get(tags, 1)), "q");
  list_del(tags);

  // A refused source leaves the elements already present alone.
  list_s *integers = integer_list();
  int32_t one = 1;
  list_add(integers, &one);
  std::string printed = capture_stdout([&] {
    list_deserialize(
        integers, parse(R"({"__sub_type__":"Boolean","__elements__":[2,3]})"));
  });
  EXPECT_EQ(printed, "Out the loop");
  EXPECT_EQ(list_get_nb_elements(integers), 1);
  list_del(integers);
}

/* ---- Reading: native elements ----------------------------------------- */

TEST(ListDeserialize, BooleansRoundTrip) {
  list_s *list =
      list_new("Boolean", Boolean_deleter, nullptr, nullptr, Boolean_copier);
  list_deserialize(
      list, parse(R"({"__sub_type__":"Boolean","__elements__":[true,false]})"));
  ASSERT_EQ(list_get_nb_elements(list), 2);
  EXPECT_EQ(static_cast<Boolean *>(list_get(list, 0))->value, 1);
  EXPECT_EQ(static_cast<Boolean *>(list_get(list, 1))->value, 0);
  EXPECT_EQ(
      serialized(list),
      R"({"__elements__":[true,false],"__sub_type__":"Boolean","__type__":"List"})");
  list_del(list);
}

TEST(ListDeserialize, IntegersAppendAfterExistingAndTwiceDoubles) {
  list_s *list = integer_list();
  int32_t zero = 0;
  list_add(list, &zero);
  Json::Value source =
      parse(R"({"__sub_type__":"Integer","__elements__":[5,-6,2147483647]})");
  list_deserialize(list, source);
  list_deserialize(list, source);
  const std::vector<int32_t> expected = {0, 5, -6, INT32_MAX, 5, -6, INT32_MAX};
  ASSERT_EQ(list_get_nb_elements(list), 7);
  for (int32_t i = 0; i < 7; i++)
    EXPECT_EQ(integer_at(list, i), expected[i]);
  list_del(list);
}

TEST(ListDeserialize, PositionsNeverSetReadAsNull) {
  // An array built by position can skip entries; each still counts.
  Json::Value source;
  source["__sub_type__"] = "Integer";
  source["__elements__"][1] = 5;
  source["__elements__"][4] = 7;
  ASSERT_EQ(source["__elements__"].size(), 5u);
  list_s *list = integer_list();
  list_deserialize(list, source);
  const std::vector<int32_t> expected = {0, 5, 0, 0, 7};
  ASSERT_EQ(list_get_nb_elements(list), 5);
  for (int32_t i = 0; i < 5; i++)
    EXPECT_EQ(integer_at(list, i), expected[i]);
  list_del(list);
}

TEST(ListDeserialize, TextsOutliveTheSource) {
  list_s *list =
      list_new("Unicode", string_deleter, nullptr, nullptr, text_copier());
  {
    Json::Value source = parse(
        R"({"__sub_type__":"Unicode","__elements__":["one","tw\u00f6"]})");
    list_deserialize(list, source);
    list_deserialize(list, source);
    EXPECT_NE(list_get(list, 0), list_get(list, 2));
  }
  ASSERT_EQ(list_get_nb_elements(list), 4);
  EXPECT_STREQ(static_cast<char *>(list_get(list, 0)), "one");
  EXPECT_STREQ(static_cast<char *>(list_get(list, 1)), "tw\xc3\xb6");
  EXPECT_STREQ(static_cast<char *>(list_get(list, 3)), "tw\xc3\xb6");
  list_del(list);
}

TEST(ListDeserialize, UnconvertibleEntryRaisesAndKeepsEarlierOnes) {
  list_s *list = integer_list();
  Json::Value source =
      parse(R"({"__sub_type__":"Integer","__elements__":[1,"x",3]})");
  EXPECT_ANY_THROW(list_deserialize(list, source));
  ASSERT_EQ(list_get_nb_elements(list), 1);
  EXPECT_EQ(integer_at(list, 0), 1);
  list_del(list);
}

/* ---- Reading: sources with nothing to read ---------------------------- */

TEST(ListDeserialize, ElementsThatAreNotAnArrayAddNothing) {
  const char *sources[] = {
      R"({"__sub_type__":"Integer"})",
      R"({"__sub_type__":"Integer","__elements__":null})",
      R"({"__sub_type__":"Integer","__elements__":"12"})",
      R"({"__sub_type__":"Integer","__elements__":7})",
      R"({"__sub_type__":"Integer","__elements__":true})",
      R"({"__sub_type__":"Integer","__elements__":{"0":1,"1":2}})",
  };
  for (const char *text : sources) {
    list_s *list = integer_list();
    std::string printed =
        capture_stdout([&] { list_deserialize(list, parse(text)); });
    EXPECT_EQ(printed, "") << text;
    EXPECT_EQ(list_get_nb_elements(list), 0) << text;
    list_del(list);
  }
}

TEST(ListDeserialize, NonNativeWithoutDeserializerAddsNothing) {
  list_s *list = list_new("Opaque", nullptr, nullptr, nullptr, nullptr);
  list_deserialize(list,
                   parse(R"({"__sub_type__":"Opaque","__elements__":[1,2]})"));
  EXPECT_EQ(list_get_nb_elements(list), 0);
  list_del(list);
}

} // namespace

namespace {

TEST(ListNullHandle, OperationsOnANullListAreHarmless) {
  Json::Value out = parse(R"({"keep":1})");
  EXPECT_EQ(list_serialize(nullptr, out), &out);
  EXPECT_EQ(render(out), R"({"keep":1})");
  EXPECT_EQ(list_deserialize(nullptr, out), nullptr);
  EXPECT_EQ(list_get(nullptr, 0), nullptr);
  EXPECT_EQ(list_get_nb_elements(nullptr), 0);
  EXPECT_EQ(list_compare(nullptr, nullptr), -1);
  list_add(nullptr, &out);
  void *slot = &out;
  list_copier(&slot, nullptr);
  EXPECT_EQ(slot, nullptr);
  list_del(nullptr);

  // A null name is kept as an empty one.
  list_s *unnamed = list_new(nullptr, nullptr, nullptr, nullptr, nullptr);
  EXPECT_STREQ(unnamed->sub_type, "");
  list_del(unnamed);
}

} // namespace
