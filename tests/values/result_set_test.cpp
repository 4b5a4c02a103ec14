#include <string>

#include <gtest/gtest.h>

#include "capture_stdout.h"
#include "container_support.h"
#include "velmora/values.h"

namespace {

using namespace container_test;

result_set_s *integer_page() {
  return result_set_new("Integer", Integer_deleter, nullptr, nullptr,
                        Integer_copier);
}

std::string serialized(result_set_s *page) {
  Json::Value out;
  EXPECT_EQ(result_set_serialize(page, out), &out);
  return render(out);
}

TEST(ResultSet, WritesTheListFormTypedResultSetWithTheTotal) {
  result_set_s *page = integer_page();
  EXPECT_EQ(result_set_get_total_items(page), 0);
  EXPECT_EQ(serialized(page), R"({"__elements__":[],"__sub_type__":"Integer",)"
                              R"("__total_items__":0,"__type__":"ResultSet"})");
  result_set_set_total_items(page, 250);
  for (int32_t v : {10, 20, 30})
    result_set_add(page, &v); // copied: `v` stays ours
  EXPECT_EQ(result_get_nb_elements(page), 3);
  EXPECT_EQ(static_cast<Integer *>(result_set_get(page, 2))->value, 30);
  EXPECT_EQ(result_set_get(page, 3), nullptr);
  EXPECT_EQ(serialized(page),
            R"({"__elements__":[10,20,30],"__sub_type__":"Integer",)"
            R"("__total_items__":250,"__type__":"ResultSet"})");
  result_set_del(page);
}

TEST(ResultSet, TotalIsReadWhetherOrNotTheListAccepts) {
  const struct {
    const char *source;
    int32_t elements;
    int32_t total;
    const char *printed;
  } cases[] = {
      {R"({"__sub_type__":"Integer","__elements__":[1,2],"__total_items__":40})",
       2, 40, ""},
      {R"({"__type__":"List","__sub_type__":"Integer","__elements__":[1]})", 1,
       -1, ""},
      {R"({"__sub_type__":"Boolean","__elements__":[true],"__total_items__":7})",
       0, 7, "Out the loop"},
      {R"({"__sub_type__":"Boolean","__elements__":[true]})", 0, -1,
       "Out the loop"},
      {R"({"__sub_type__":"Integer","__total_items__":null})", 0, 0, ""},
  };
  for (const auto &c : cases) {
    result_set_s *page = integer_page();
    result_set_set_total_items(page, 99);
    result_set_s *result = nullptr;
    std::string printed = capture_stdout(
        [&] { result = result_set_deserialize(page, parse(c.source)); });
    EXPECT_EQ(result, page);
    EXPECT_EQ(printed, c.printed) << c.source;
    EXPECT_EQ(result_get_nb_elements(page), c.elements) << c.source;
    EXPECT_EQ(result_set_get_total_items(page), c.total) << c.source;
    result_set_del(page);
  }
}

TEST(ResultSet, CopierCopiesTotalAndListAsListCopierDoes) {
  result_set_s *page = result_set_new("Tag", tag_deleter, tag_deserialize,
                                      tag_serialize, tag_copier);
  result_set_deserialize(page, parse(R"({"__sub_type__":"Tag",)"
                                     R"("__elements__":[{"__value__":"a"}],)"
                                     R"("__total_items__":-5})"));
  void *slot = nullptr;
  resultset_copier(&slot, page);
  result_set_s *copy = static_cast<result_set_s *>(slot);
  EXPECT_EQ(result_set_get_total_items(copy), -5);
  EXPECT_NE(copy->list, page->list);
  EXPECT_NE(result_set_get(copy, 0), result_set_get(page, 0));
  result_set_del(page);
  EXPECT_STREQ(tag_label(result_set_get(copy, 0)), "a");
  result_set_del(copy);

  Integer cell = {3}; // without a copier the copy shares the handles
  result_set_s *shared =
      result_set_new("Integer", nullptr, nullptr, nullptr, nullptr);
  result_set_add(shared, &cell);
  resultset_copier(&slot, shared);
  EXPECT_EQ(result_set_get(static_cast<result_set_s *>(slot), 0), &cell);
  result_set_del(slot);
  result_set_del(shared);
}

} // namespace
