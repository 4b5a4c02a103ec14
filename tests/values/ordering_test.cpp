/* The sort order record: envelope, presence bits and copies. */
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "container_support.h"
#include "velmora/values.h"

namespace {

using namespace container_test;

std::string serialized(Ordering *ordering) {
  Json::Value out;
  EXPECT_EQ(Ordering_serialize(ordering, out), &out);
  return render(out);
}

std::string envelope(const char *asc, const char *order_by) {
  return std::string(R"({"__properties__":{"asc":)") + asc +
         R"(,"order_by":")" + order_by + R"("},"__type__":"Ordering"})";
}

TEST(Ordering, AscIsWrittenTrueOnlyForExactlyOneAndNoNameAsEmpty) {
  Ordering *ordering = Ordering_new();
  EXPECT_EQ(ordering->presence_mask, 0u);
  EXPECT_EQ(serialized(ordering), envelope("false", ""));
  ordering_setOrder_by(ordering, "name");
  const std::pair<int32_t, const char *> cases[] = {
      {1, "true"}, {0, "false"}, {2, "false"}, {-1, "false"}};
  for (const auto &[asc, written] : cases) {
    ordering_setAsc(ordering, asc);
    EXPECT_EQ(ordering_getAsc(ordering), asc);
    EXPECT_EQ(serialized(ordering), envelope(written, "name"));
  }
  Json::Value out = parse(R"({"__properties__":{"extra":1},"k":2})");
  Ordering_serialize(ordering, out);
  EXPECT_EQ(render(out), R"({"__properties__":{"asc":false,"extra":1,)"
                         R"("order_by":"name"},"__type__":"Ordering","k":2})");
  Ordering_deleter(ordering);
}

TEST(Ordering, EveryObjectReadsIntoBothFieldsAndBits) {
  const struct {
    const char *source;
    int32_t asc;
    const char *order_by;
  } cases[] = {
      {"null", 0, ""},
      {R"({"__type__":"ListInfo"})", 0, ""},
      {R"({"__properties__":{"asc":true,"order_by":"name"}})", 1, "name"},
      {R"({"__properties__":{"order_by":"n\u00e9"}})", 0, "n\xc3\xa9"}};
  for (const auto &c : cases) {
    Ordering *ordering =
        static_cast<Ordering *>(Ordering_deserialize(parse(c.source)));
    EXPECT_EQ(ordering_getAsc(ordering), c.asc) << c.source;
    ASSERT_NE(ordering_getOrder_by(ordering), nullptr) << c.source;
    EXPECT_STREQ(ordering_getOrder_by(ordering), c.order_by) << c.source;
    EXPECT_EQ(ordering->presence_mask, 3u) << c.source;
    Ordering_deleter(ordering);
  }
  /* Members that cannot be converted raise; nothing is left behind. */
  for (const char *source : {R"({"__properties__":{"asc":"yes"}})",
                             R"({"__properties__":{"order_by":["a"]}})",
                             R"({"__properties__":[1]})"})
    EXPECT_ANY_THROW(Ordering_deserialize(parse(source))) << source;
}

TEST(Ordering, SettersRaiseBitsAndKeepOneOwnedCopy) {
  Ordering *ordering = Ordering_new();
  ordering_setAsc(ordering, 1);
  EXPECT_EQ(ordering->presence_mask, 1u);
  char mine[] = "first";
  ordering_setOrder_by(ordering, mine);
  EXPECT_EQ(ordering->presence_mask, 3u);
  mine[0] = 'X';
  EXPECT_STREQ(ordering_getOrder_by(ordering), "first");
  ordering_setOrder_by(ordering, "second"); // the first copy is released
  ordering_setOrder_by(ordering, ordering_getOrder_by(ordering));
  EXPECT_STREQ(ordering_getOrder_by(ordering), "second");
  ordering_setOrder_by(ordering, nullptr);
  EXPECT_EQ(ordering_getOrder_by(ordering), nullptr);
  EXPECT_EQ(serialized(ordering), envelope("true", ""));
  Ordering_deleter(ordering);
}

TEST(Ordering, CopierAndDestroyFollowTheMask) {
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
  EXPECT_EQ(copy->presence_mask, 3u);
  Ordering_deleter(full);
  EXPECT_EQ(serialized(copy), envelope("false", "name"));
  Ordering_destroy(copy); // releases the text, keeps the mask
  EXPECT_EQ(copy->order_by, nullptr);
  EXPECT_EQ(copy->presence_mask, 3u);
  Ordering_deleter(copy);
}

} // namespace
