#include <string>

#include <gtest/gtest.h>

#include "container_support.h"
#include "velmora/values.h"

namespace {

std::string serialized(Ordering *ordering) {
  Json::Value out;
  EXPECT_EQ(Ordering_serialize(ordering, out), &out);
  return render(out);
}

/* ---- Envelope --------------------------------------------------------- */

TEST(OrderingEnvelope, FreshRecordWritesFalseAndEmptyName) {
  Ordering *ordering = Ordering_new();
  EXPECT_EQ(ordering->asc, 0);
  EXPECT_EQ(ordering->order_by, nullptr);
  EXPECT_EQ(ordering->presence_mask, 0u);
  EXPECT_EQ(
      serialized(ordering),
      R"({"__properties__":{"asc":false,"order_by":""},"__type__":"Ordering"})");
  Ordering_deleter(ordering);
}

TEST(OrderingEnvelope, AscIsTrueOnlyForExactlyOne) {
  const struct {
    int32_t asc;
    const char *written;
  } cases[] = {
      {1, "true"}, {0, "false"}, {2, "false"}, {-1, "false"}, {257, "false"}};
  for (const auto &c : cases) {
    Ordering *ordering = Ordering_new();
    ordering_setAsc(ordering, c.asc);
    ordering_setOrder_by(ordering, "name");
    EXPECT_EQ(ordering_getAsc(ordering), c.asc);
    EXPECT_EQ(serialized(ordering),
              std::string(R"({"__properties__":{"asc":)") + c.written +
                  R"(,"order_by":"name"},"__type__":"Ordering"})");
    Ordering_deleter(ordering);
  }
}

TEST(OrderingEnvelope, KeepsOtherMembersOfTheTarget) {
  Ordering *ordering = Ordering_new();
  ordering_setOrder_by(ordering, "date");
  Json::Value out =
      parse(R"({"__type__":"X","__properties__":{"extra":1},"k":2})");
  Ordering_serialize(ordering, out);
  EXPECT_EQ(
      render(out),
      R"({"__properties__":{"asc":false,"extra":1,"order_by":"date"},"__type__":"Ordering","k":2})");
  Ordering_deleter(ordering);
}

/* ---- Reading ---------------------------------------------------------- */

TEST(OrderingDeserialize, EveryObjectYieldsBothFields) {
  const struct {
    const char *source;
    int32_t asc;
    const char *order_by;
  } cases[] = {
      {"null", 0, ""},
      {R"({})", 0, ""},
      {R"({"__type__":"ListInfo"})", 0, ""},
      {R"({"__properties__":null})", 0, ""},
      {R"({"__properties__":{"asc":true,"order_by":"name"}})", 1, "name"},
      {R"({"__properties__":{"asc":false}})", 0, ""},
      {R"({"__properties__":{"order_by":"n\u00e9"}})", 0, "n\xc3\xa9"},
      {R"({"__properties__":{"asc":1,"order_by":""}})", 1, ""},
  };
  for (const auto &c : cases) {
    Ordering *ordering =
        static_cast<Ordering *>(Ordering_deserialize(parse(c.source)));
    EXPECT_EQ(ordering_getAsc(ordering), c.asc) << c.source;
    ASSERT_NE(ordering_getOrder_by(ordering), nullptr) << c.source;
    EXPECT_STREQ(ordering_getOrder_by(ordering), c.order_by) << c.source;
    EXPECT_EQ(ordering->presence_mask, 3u) << c.source;
    Ordering_deleter(ordering);
  }
}

TEST(OrderingDeserialize, UnconvertibleMemberRaisesWithoutLeaking) {
  const char *sources[] = {
      R"({"__properties__":{"asc":"yes"}})",
      R"({"__properties__":{"asc":true,"order_by":["a"]}})",
      R"({"__properties__":[1]})",
      R"([1])",
  };
  for (const char *source : sources)
    EXPECT_ANY_THROW(Ordering_deserialize(parse(source))) << source;
}

/* ---- Masks, setters and copies ---------------------------------------- */

TEST(OrderingMask, EachSetterRaisesItsOwnBit) {
  Ordering *ordering = Ordering_new();
  ordering_setAsc(ordering, 1);
  EXPECT_EQ(ordering->presence_mask, 1u);
  ordering_setOrder_by(ordering, "a");
  EXPECT_EQ(ordering->presence_mask, 3u);
  Ordering_deleter(ordering);

  ordering = Ordering_new();
  ordering_setOrder_by(ordering, "a");
  EXPECT_EQ(ordering->presence_mask, 2u);
  Ordering_deleter(ordering);
}

TEST(OrderingSetter, SettingTwiceAndFromItsOwnTextKeepsOneCopy) {
  Ordering *ordering = Ordering_new();
  char mine[] = "first";
  ordering_setOrder_by(ordering, mine);
  EXPECT_NE(ordering_getOrder_by(ordering), mine);
  mine[0] = 'X';
  EXPECT_STREQ(ordering_getOrder_by(ordering), "first");

  ordering_setOrder_by(ordering, "second"); // the first copy is released
  ordering_setOrder_by(ordering, ordering_getOrder_by(ordering));
  EXPECT_STREQ(ordering_getOrder_by(ordering), "second");

  // A null text holds nothing and is written as an empty name.
  ordering_setOrder_by(ordering, nullptr);
  EXPECT_EQ(ordering_getOrder_by(ordering), nullptr);
  EXPECT_EQ(ordering->presence_mask, 2u);
  EXPECT_EQ(
      serialized(ordering),
      R"({"__properties__":{"asc":false,"order_by":""},"__type__":"Ordering"})");
  Ordering_deleter(ordering);
}

TEST(OrderingCopier, CopiesWhatTheMaskSays) {
  Ordering *asc_only = Ordering_new();
  ordering_setAsc(asc_only, 1);
  asc_only->order_by = const_cast<char *>("not owned"); // bit 2 clear
  void *slot = nullptr;
  Ordering_copier(&slot, asc_only);
  Ordering *copy = static_cast<Ordering *>(slot);
  EXPECT_EQ(copy->asc, 1);
  EXPECT_EQ(copy->order_by, nullptr);
  EXPECT_EQ(copy->presence_mask, 1u);
  Ordering_deleter(copy);
  Ordering_deleter(asc_only); // releases nothing but the record

  Ordering *full = Ordering_new();
  ordering_setAsc(full, 5);
  ordering_setOrder_by(full, "name");
  Ordering_copier(&slot, full);
  copy = static_cast<Ordering *>(slot);
  EXPECT_EQ(copy->asc, 5);
  EXPECT_NE(copy->order_by, full->order_by);
  EXPECT_STREQ(copy->order_by, "name");
  EXPECT_EQ(copy->presence_mask, 3u);
  Ordering_deleter(full);
  EXPECT_EQ(
      serialized(copy),
      R"({"__properties__":{"asc":false,"order_by":"name"},"__type__":"Ordering"})");
  Ordering_deleter(copy);

  Ordering *empty = Ordering_new();
  empty->asc = 9; // no bit: not copied
  Ordering_copier(&slot, empty);
  copy = static_cast<Ordering *>(slot);
  EXPECT_EQ(copy->asc, 0);
  EXPECT_EQ(copy->presence_mask, 0u);
  Ordering_deleter(copy);
  Ordering_deleter(empty);
}

TEST(OrderingDestroy, ReleasesTheTextAndKeepsTheMask) {
  Ordering ordering;
  Ordering_init(&ordering);
  ordering_setAsc(&ordering, 1);
  ordering_setOrder_by(&ordering, "name");
  Ordering_destroy(&ordering);
  EXPECT_EQ(ordering.order_by, nullptr);
  EXPECT_EQ(ordering.presence_mask, 3u);
  EXPECT_EQ(ordering.asc, 1);
  Ordering_destroy(&ordering); // nothing left to release
}

TEST(OrderingNullHandle, OperationsOnANullRecordAreHarmless) {
  Json::Value out;
  EXPECT_EQ(Ordering_serialize(nullptr, out), &out);
  EXPECT_TRUE(out.isNull());
  EXPECT_EQ(ordering_getAsc(nullptr), 0);
  EXPECT_EQ(ordering_getOrder_by(nullptr), nullptr);
  ordering_setAsc(nullptr, 1);
  ordering_setOrder_by(nullptr, "a");
  ordering_setJsonAsc(nullptr, out);
  ordering_setJsonOrder_by(nullptr, out);
  void *slot = &out;
  Ordering_copier(&slot, nullptr);
  EXPECT_EQ(slot, nullptr);
  Ordering_init(nullptr);
  Ordering_destroy(nullptr);
  Ordering_deleter(nullptr);
}

} // namespace
