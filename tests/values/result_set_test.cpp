/* The result page: a list written as "ResultSet" with its total. */
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

TEST(ResultSet, WritesTheListFormRetypedWithTheTotal) {
  result_set_s *page = integer_page();
  EXPECT_EQ(result_set_get_total_items(page), 0);
  result_set_set_total_items(page, 250);
  for (int32_t v : {10, 20, 30})
    result_set_add(page, &v); // copied: `v` stays ours
  EXPECT_EQ(result_get_nb_elements(page), 3);
  EXPECT_EQ(static_cast<Integer *>(result_set_get(page, 2))->value, 30);
  EXPECT_EQ(result_set_get(page, 3), nullptr);
  Json::Value out;
  EXPECT_EQ(result_set_serialize(page, out), &out);
  EXPECT_EQ(render(out),
            R"({"__elements__":[10,20,30],"__sub_type__":"Integer",)"
            R"("__total_items__":250,"__type__":"ResultSet"})");
  result_set_del(page);
}

TEST(ResultSet, TotalIsReadWhetherOrNotTheListAccepts) {
  const struct {
    const char *source;
    int32_t elements, total;
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
      {R"({"__sub_type__":"Integer","__total_items__":null})", 0, 0, ""}};
  for (const auto &c : cases) {
    result_set_s *page = integer_page();
    result_set_set_total_items(page, 99);
    result_set_s *result = nullptr;
    EXPECT_EQ(capture_stdout([&] {
                result = result_set_deserialize(page, parse(c.source));
              }),
              c.printed)
        << c.source;
    EXPECT_EQ(result, page);
    EXPECT_EQ(result_get_nb_elements(page), c.elements) << c.source;
    EXPECT_EQ(result_set_get_total_items(page), c.total) << c.source;
    result_set_del(page);
  }
}

TEST(ResultSet, CopierCopiesTheTotalAndTheListAsListCopierDoes) {
  result_set_s *page =
      result_set_new("IP", IP_deleter, IP_deserialize, IP_serialize, IP_copier);
  void *mine = ip_cell("a");
  result_set_add(page, mine); // copied: `mine` stays ours
  IP_deleter(mine);
  result_set_set_total_items(page, -5);
  void *slot = nullptr;
  resultset_copier(&slot, page);
  result_set_s *copy = static_cast<result_set_s *>(slot);
  EXPECT_EQ(result_set_get_total_items(copy), -5);
  EXPECT_NE(result_set_get(copy, 0), result_set_get(page, 0));
  result_set_del(page);
  EXPECT_STREQ(ip_getValue(result_set_get(copy, 0)), "a");
  result_set_del(copy);
}

} // namespace
