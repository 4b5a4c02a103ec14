/*
 * Inputs the fuzz targets (fuzz/) found troublesome, kept as tests. Each
 * case names what went wrong before the fix.
 */
#include <cstdlib>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "container_support.h"
#include "velmora/values.h"

namespace {

using container_test::parse;
using container_test::text_copier;

/*
 * The "Unicode" copier is string_copier, whose type is not the copier's
 * shape; the containers called it through the copier pointer, which is
 * undefined behaviour (clang's -fsanitize=function reported it on the first
 * ListInfo read). They now call it as what it is; the copies must still be
 * the containers' own.
 */
TEST(FuzzRegression, UnicodeContainersCopyThroughStringCopier) {
  char text[] = "first";

  list_s *list = list_new("Unicode", string_deleter, string_deserialize,
                          nullptr, text_copier());
  list_add(list, text);
  ASSERT_EQ(list_get_nb_elements(list), 1);
  EXPECT_STREQ(static_cast<char *>(list_get(list, 0)), "first");
  EXPECT_NE(list_get(list, 0), static_cast<void *>(text));
  void *list_copy = nullptr;
  list_copier(&list_copy, list);
  EXPECT_NE(list_get(static_cast<list_s *>(list_copy), 0), list_get(list, 0));
  list_del(list_copy);
  list_del(list);

  dict_s *dict = dict_new("Unicode", string_deleter, string_deserialize,
                          nullptr, text_copier());
  dict_add(dict, "key", text);
  text[0] = 'F';
  EXPECT_STREQ(static_cast<char *>(dict_get(dict, "key")), "first");
  dict_free(dict);
}

TEST(FuzzRegression, ListInfoSearchParametersFromTheFirstCrashingInput) {
  const Json::Value in = parse(
      R"({"__type__":"ListInfo","__properties__":{"limit":10,"offset":20,)"
      R"("order":{"__type__":"Ordering","__properties__":{"asc":false,)"
      R"("order_by":"id"}},"search_parameters":{"__type__":"Dict",)"
      R"("__sub_type__":"Unicode","__elements__":{"name":"a*","zone":"eu"}}}})");
  auto *read = static_cast<ListInfo *>(ListInfo_deserialize(in));
  void *copy = nullptr;
  ListInfo_copier(&copy, read);
  dict_s *mine = listinfo_getSearch_parameters(read);
  dict_s *theirs = listinfo_getSearch_parameters(static_cast<ListInfo *>(copy));
  ASSERT_EQ(theirs->nb_elements, 2);
  EXPECT_STREQ(static_cast<char *>(dict_get(theirs, "name")), "a*");
  EXPECT_STREQ(static_cast<char *>(dict_get(theirs, "zone")), "eu");
  EXPECT_NE(dict_get(theirs, "name"), dict_get(mine, "name"));
  ListInfo_deleter(copy);
  ListInfo_deleter(read);
}

} // namespace
