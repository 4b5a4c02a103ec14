/* The two records, Ordering and ListInfo: envelopes, presence bits, flags
 * and copies. */
#include <gtest/gtest.h>

#include "value_types.h"

namespace {

std::string written(int type, void *record) {
  Json::Value out;
  EXPECT_EQ(value_types[type].write(record, out), &out);
  EXPECT_EQ(out["__type__"], value_types[type].name);
  return render(out["__properties__"]);
}

/* "asc" is written true only for exactly 1, a name never given as "". */
TEST(Ordering, WritesAscAndNameAndCopiesByTheMask) {
  Ordering order, *copy;
  Ordering_init(&order);
  EXPECT_EQ(written(ORDERING, &order), R"({"asc":false,"order_by":""})");
  char mine[] = "name";
  ordering_setOrder_by(&order, mine);
  mine[0] = 'X'; // the record holds its own copy
  ordering_setOrder_by(&order, ordering_getOrder_by(&order));
  EXPECT_EQ(order.presence_mask, 2u);
  for (int32_t asc : {2, -1, 1}) {
    ordering_setAsc(&order, asc);
    EXPECT_EQ(ordering_getAsc(&order), asc);
    EXPECT_EQ(written(ORDERING, &order), std::string(R"({"asc":)") +
                                             (asc == 1 ? "true" : "false") +
                                             R"(,"order_by":"name"})");
  }
  Ordering_copier(reinterpret_cast<void **>(&copy), &order);
  Ordering_destroy(&order); // releases the text, keeps the mask
  EXPECT_TRUE(order.order_by == nullptr && order.presence_mask == 3u);
  EXPECT_EQ(written(ORDERING, copy), R"({"asc":true,"order_by":"name"})");
  ordering_setOrder_by(copy, nullptr);
  EXPECT_EQ(ordering_getOrder_by(copy), nullptr);
  Ordering_deleter(copy);
  Ordering asc_only = {1, mine, 1}; // the name is not the record's
  Ordering_copier(reinterpret_cast<void **>(&copy), &asc_only);
  Ordering_destroy(&asc_only);
  EXPECT_EQ(written(ORDERING, copy), R"({"asc":true,"order_by":""})");
  EXPECT_EQ(copy->presence_mask, 1u);
  Ordering_deleter(copy);
}

/* Whatever the source holds, every field is read and every bit set, the
 * parameters an empty Dict of texts; members that cannot be converted
 * raise, leaving nothing behind ("!"). */
TEST(ListInfo, ReadsEveryFieldFromAnyObject) {
  const struct {
    int type;
    const char *in, *properties;
  } cases[] = {
      {ORDERING, "null", R"({"asc":false,"order_by":""})"},
      {ORDERING, R"({"asc":7,"order_by":"n\u00e9"})",
       R"({"asc":true,"order_by":"n\u00e9"})"},
      {ORDERING, R"({"asc":"yes"})", "!"},
      {ORDERING, R"({"order_by":[]})", "!"},
      {LIST_INFO, "null", R"({"limit":0,"offset":0})"},
      {LIST_INFO, R"({"limit":"ten"})", "!"},
      {LIST_INFO, R"({"order":{"__properties__":{"asc":"x"}}})", "!"},
      {LIST_INFO,
       R"({"search_parameters":{"__sub_type__":"","__elements__":{"b":[]}}})",
       "!"},
      {LIST_INFO, R"({"offset":{}})", "!"}};
  for (const auto &c : cases) {
    const value_type &t = value_types[c.type];
    const Json::Value in =
        json(R"({"__properties__":)" + std::string(c.in) + "}");
    if (c.properties[0] == '!') {
      EXPECT_ANY_THROW(t.read(in)) << c.in;
      continue;
    }
    void *read = t.read(in);
    EXPECT_EQ(written(c.type, read), c.properties);
    EXPECT_EQ(c.type == ORDERING ? static_cast<Ordering *>(read)->presence_mask
                                 : static_cast<ListInfo *>(read)->presence_mask,
              c.type == ORDERING ? 3u : 15u);
    t.release(read);
  }
  auto *read = static_cast<ListInfo *>(ListInfo_deserialize(json("null")));
  EXPECT_STREQ(ordering_getOrder_by(listinfo_getOrder(read)), "");
  const dict_s search = *listinfo_getSearch_parameters(read);
  EXPECT_STREQ(search.sub_type, "Unicode");
  EXPECT_TRUE(search.deserializer == string_deserialize &&
              search.copier == text_copier);
  ListInfo_deleter(read);
}

/* Setters raise bits and flags and keep their own copy, also of the
 * record's own member; only flags of exactly 1 write a member. Copying
 * raises no flag; copies take the fields whose bits are set. */
TEST(ListInfo, SettersAndFlagsDecideWhatIsWritten) {
  const char *plain = R"({"limit":25,"offset":50})";
  const char *full = R"({"limit":25,"offset":50,"order":{"__properties__":)"
                     R"({"asc":true,"order_by":"id"},"__type__":"Ordering"},)"
                     R"("search_parameters":{"__elements__":{"a":"b"},)"
                     R"("__sub_type__":"Unicode","__type__":"Dict"}})";
  ListInfo *request = ListInfo_new(), *copy;
  EXPECT_EQ(written(LIST_INFO, request), R"({"limit":0,"offset":0})");
  listinfo_setLimit(request, 25);
  listinfo_setOffset(request, 50);
  EXPECT_EQ(request->presence_mask, 9u);
  Ordering order = {1, const_cast<char *>("id"), 3};
  listinfo_setOrder(request, &order);
  dict_s *search = dict_new("Unicode", string_deleter, 0, 0, text_copier);
  dict_add(search, "a", const_cast<char *>("b"));
  listinfo_setSearch_parameters(request, search);
  dict_free(search);
  listinfo_setOrder(request, listinfo_getOrder(request));
  listinfo_setSearch_parameters(request,
                                listinfo_getSearch_parameters(request));
  EXPECT_EQ(request->presence_mask, 15u);
  EXPECT_EQ(written(LIST_INFO, request), full);
  ListInfo_copier(reinterpret_cast<void **>(&copy), request);
  EXPECT_EQ(written(LIST_INFO, copy), plain);
  request->order_is_set = 2;
  request->search_parameters_is_set = 0;
  EXPECT_EQ(written(LIST_INFO, request), plain);
  listinfo_setOrder(request, nullptr); // set to nothing: nothing to write
  listinfo_setSearch_parameters(request, nullptr);
  EXPECT_EQ(written(LIST_INFO, request), plain);
  ListInfo_deleter(request);
  listinfo_setOrder(copy, listinfo_getOrder(copy));
  listinfo_setSearch_parameters(copy, listinfo_getSearch_parameters(copy));
  EXPECT_EQ(written(LIST_INFO, copy), full);
  ListInfo_destroy(copy); // releases order and parameters, keeps the rest
  ListInfo_init(copy);
  listinfo_setOffset(copy, 8);
  copy->limit = 99; // no bit: not copied
  ListInfo_copier(reinterpret_cast<void **>(&request), copy);
  EXPECT_EQ(written(LIST_INFO, request), R"({"limit":0,"offset":8})");
  EXPECT_EQ(request->presence_mask, 8u);
  ListInfo_deleter(request);
  ListInfo_deleter(copy);
}

/* Given a null record, getters return 0 or null and setters do nothing. */
TEST(ListInfo, NullRecordsDoNothing) {
  EXPECT_EQ(ordering_getAsc(nullptr) + listinfo_getLimit(nullptr) +
                listinfo_getOffset(nullptr),
            0);
  EXPECT_TRUE(ordering_getOrder_by(nullptr) == nullptr &&
              listinfo_getOrder(nullptr) == nullptr &&
              listinfo_getSearch_parameters(nullptr) == nullptr);
  Ordering_init(nullptr);
  ListInfo_init(nullptr);
  ordering_setAsc(nullptr, 1);
  ordering_setOrder_by(nullptr, "x");
  listinfo_setLimit(nullptr, 1);
  listinfo_setOffset(nullptr, 1);
  listinfo_setOrder(nullptr, nullptr);
  listinfo_setSearch_parameters(nullptr, nullptr);
  Ordering_destroy(nullptr);
  ListInfo_destroy(nullptr);
}

} // namespace
