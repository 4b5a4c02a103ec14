/* The two records, Ordering and ListInfo: envelopes, presence bits, flags
 * and copies. */
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "value_types.h"

namespace {

std::string serialized(int type, void *record) {
  Json::Value out;
  EXPECT_EQ(value_types[type].write(record, out), &out);
  return render(out);
}

std::string ordering(const char *asc, const char *order_by) {
  return std::string(R"({"__properties__":{"asc":)") + asc +
         R"(,"order_by":")" + order_by + R"("},"__type__":"Ordering"})";
}

std::string list_info(const std::string &members) {
  return R"({"__properties__":{"limit":25,"offset":50)" + members +
         R"(},"__type__":"ListInfo"})";
}

/* A page request holding every field: order and two search texts. */
ListInfo *full_request() {
  ListInfo *request = ListInfo_new();
  listinfo_setLimit(request, 25);
  listinfo_setOffset(request, 50);
  Ordering *order = Ordering_new();
  ordering_setAsc(order, 1);
  ordering_setOrder_by(order, "created");
  listinfo_setOrder(request, order);
  Ordering_deleter(order);
  dict_s *search = dict_new("Unicode", string_deleter, string_deserialize,
                            nullptr, text_copier);
  dict_add(search, "owner", const_cast<char *>("ann"));
  listinfo_setSearch_parameters(request, search);
  dict_free(search);
  return request;
}

const std::string kFull =
    list_info(R"(,"order":{"__properties__":{"asc":true,"order_by":"created"},)"
              R"("__type__":"Ordering"},"search_parameters":{"__elements__":)"
              R"({"owner":"ann"},"__sub_type__":"Unicode","__type__":"Dict"})");

TEST(Ordering, AscIsWrittenTrueOnlyForExactlyOneAndNoNameAsEmpty) {
  Ordering *order = Ordering_new();
  EXPECT_EQ(order->presence_mask, 0u);
  EXPECT_EQ(serialized(ORDERING, order), ordering("false", ""));
  char mine[] = "name";
  ordering_setOrder_by(order, mine);
  mine[0] = 'X';
  EXPECT_EQ(order->presence_mask, 2u);
  for (const auto &[asc, written] :
       {std::pair(1, "true"), {0, "false"}, {2, "false"}, {-1, "false"}}) {
    ordering_setAsc(order, asc);
    EXPECT_EQ(ordering_getAsc(order), asc);
    EXPECT_EQ(serialized(ORDERING, order), ordering(written, "name"));
  }
  EXPECT_EQ(order->presence_mask, 3u);
  Json::Value out = json(R"({"__properties__":{"extra":1},"k":2})");
  Ordering_serialize(order, out);
  EXPECT_EQ(render(out), R"({"__properties__":{"asc":false,"extra":1,)"
                         R"("order_by":"name"},"__type__":"Ordering","k":2})");
  ordering_setOrder_by(order, "second"); // the first copy is released
  ordering_setOrder_by(order, ordering_getOrder_by(order));
  EXPECT_STREQ(ordering_getOrder_by(order), "second");
  ordering_setOrder_by(order, nullptr);
  EXPECT_EQ(ordering_getOrder_by(order), nullptr);
  Ordering_deleter(order);
}

/* Whatever the source holds, both fields are read and both bits set;
 * members that cannot be converted raise, leaving nothing behind. */
TEST(Ordering, EveryObjectReadsIntoBothFieldsAndBits) {
  const struct {
    const char *source;
    int32_t asc;
    const char *order_by;
  } cases[] = {
      {"null", 0, ""},
      {R"({"__type__":"ListInfo"})", 0, ""},
      {R"({"__properties__":{"asc":true,"order_by":"name"}})", 1, "name"},
      {R"({"__properties__":{"asc":7,"order_by":"n\u00e9"}})", 1, "n\xc3\xa9"}};
  for (const auto &c : cases) {
    auto *order = static_cast<Ordering *>(Ordering_deserialize(json(c.source)));
    EXPECT_EQ(ordering_getAsc(order), c.asc) << c.source;
    EXPECT_STREQ(ordering_getOrder_by(order), c.order_by) << c.source;
    EXPECT_EQ(order->presence_mask, 3u) << c.source;
    Ordering_deleter(order);
  }
  for (const char *source : {R"({"__properties__":{"asc":"yes"}})",
                             R"({"__properties__":{"order_by":["a"]}})",
                             R"({"__properties__":[1]})"})
    EXPECT_ANY_THROW(Ordering_deserialize(json(source))) << source;
}

/* Copiers copy the fields whose bits are set, with the whole mask; destroy
 * releases what the mask says is owned. Null records do nothing. */
TEST(Ordering, CopierAndDestroyFollowTheMask) {
  Ordering asc_only = {1, const_cast<char *>("not owned"), 1}, *copy;
  Ordering_copier(reinterpret_cast<void **>(&copy), &asc_only);
  EXPECT_EQ(serialized(ORDERING, copy), ordering("true", ""));
  EXPECT_EQ(copy->presence_mask, 1u);
  Ordering_destroy(&asc_only); // releases nothing
  Ordering_deleter(copy);

  Ordering full = {5, nullptr, 3};
  ordering_setOrder_by(&full, "name");
  Ordering_copier(reinterpret_cast<void **>(&copy), &full);
  Ordering_destroy(&full); // releases the text, keeps the mask
  EXPECT_EQ(full.order_by, nullptr);
  EXPECT_EQ(full.presence_mask, 3u);
  EXPECT_EQ(serialized(ORDERING, copy), ordering("false", "name"));
  EXPECT_EQ(copy->presence_mask, 3u);
  Ordering_deleter(copy);

  Ordering_init(&full);
  EXPECT_EQ(full.asc + full.presence_mask, 0u);
  Ordering_init(nullptr);
  ordering_setAsc(nullptr, 1);
  ordering_setOrder_by(nullptr, "x");
  EXPECT_EQ(ordering_getAsc(nullptr), 0);
  EXPECT_EQ(ordering_getOrder_by(nullptr), nullptr);
  EXPECT_EQ(serialized(ORDERING, nullptr), "null");
  Ordering_deleter(nullptr);
  Ordering_destroy(nullptr);
}

/* Setters raise bits and flags and keep one owned copy, also of the
 * record's own member; only flags of exactly 1 write a member. */
TEST(ListInfo, SettersAndFlagsDecideWhatIsWritten) {
  ListInfo *request = ListInfo_new();
  EXPECT_EQ(
      serialized(LIST_INFO, request),
      R"({"__properties__":{"limit":0,"offset":0},"__type__":"ListInfo"})");
  ListInfo_deleter(request);
  request = full_request();
  EXPECT_EQ(request->presence_mask, 15u);
  EXPECT_EQ(serialized(LIST_INFO, request), kFull);
  listinfo_setOrder(request, listinfo_getOrder(request));
  listinfo_setSearch_parameters(request,
                                listinfo_getSearch_parameters(request));
  EXPECT_EQ(serialized(LIST_INFO, request), kFull);
  request->order_is_set = 2;
  request->search_parameters_is_set = 0;
  EXPECT_EQ(serialized(LIST_INFO, request), list_info(""));
  ListInfo_deleter(request);

  request = full_request(); // set to nothing: nothing to write
  listinfo_setOrder(request, nullptr);
  listinfo_setSearch_parameters(request, nullptr);
  EXPECT_EQ(serialized(LIST_INFO, request), list_info(""));
  ListInfo_deleter(request);

  ListInfo partial;
  ListInfo_init(&partial);
  listinfo_setLimit(&partial, 3);
  EXPECT_EQ(partial.presence_mask, 1u);
  listinfo_setOffset(&partial, 4);
  EXPECT_EQ(listinfo_getLimit(&partial) + listinfo_getOffset(&partial), 7);
  EXPECT_EQ(partial.presence_mask + partial.order_is_set, 9u);
  ListInfo_destroy(&partial);
  ListInfo_init(nullptr);
  listinfo_setLimit(nullptr, 1);
  listinfo_setOffset(nullptr, 1);
  listinfo_setOrder(nullptr, nullptr);
  listinfo_setSearch_parameters(nullptr, nullptr);
  EXPECT_EQ(listinfo_getLimit(nullptr) + listinfo_getOffset(nullptr), 0);
  EXPECT_EQ(listinfo_getOrder(nullptr), nullptr);
  EXPECT_EQ(listinfo_getSearch_parameters(nullptr), nullptr);
  EXPECT_EQ(serialized(LIST_INFO, nullptr), "null");
  ListInfo_deleter(nullptr);
}

/* Read back, a request has every member but writes order and search
 * parameters only once they are set again: reading and copying raise no
 * flag. Members that cannot be converted raise, leaving nothing behind. */
TEST(ListInfo, ReadsEveryMemberAndCopiesByTheMask) {
  ListInfo *request = full_request();
  Json::Value out;
  ListInfo_serialize(request, out);
  ListInfo_deleter(request);
  for (const Json::Value &in : {out, json("null")}) {
    auto *back = static_cast<ListInfo *>(ListInfo_deserialize(in));
    EXPECT_EQ(back->presence_mask, 15u);
    EXPECT_EQ(back->order_is_set + back->search_parameters_is_set, 0);
    dict_s *search = listinfo_getSearch_parameters(back);
    EXPECT_STREQ(search->sub_type, "Unicode");
    EXPECT_EQ(search->copier, text_copier);
    EXPECT_EQ(search->deserializer, string_deserialize);
    EXPECT_EQ(search->serializer, nullptr);
    ListInfo *copy;
    ListInfo_copier(reinterpret_cast<void **>(&copy), back);
    ListInfo_deleter(back);
    EXPECT_EQ(copy->presence_mask, 15u);
    const bool full = in.isObject();
    EXPECT_EQ(
        serialized(LIST_INFO, copy),
        full
            ? list_info("")
            : R"({"__properties__":{"limit":0,"offset":0},"__type__":"ListInfo"})");
    listinfo_setOrder(copy, listinfo_getOrder(copy));
    listinfo_setSearch_parameters(copy, listinfo_getSearch_parameters(copy));
    if (full) {
      EXPECT_EQ(serialized(LIST_INFO, copy), kFull);
    }
    ListInfo_deleter(copy);
  }
  ListInfo partial = {99, nullptr, 1, nullptr, 1, 8, 8}, *copy;
  ListInfo_copier(reinterpret_cast<void **>(&copy),
                  &partial); // no bit: not copied
  EXPECT_EQ(
      serialized(LIST_INFO, copy),
      R"({"__properties__":{"limit":0,"offset":8},"__type__":"ListInfo"})");
  ListInfo_deleter(copy);
  for (const char *source :
       {R"({"__properties__":{"limit":"ten"}})",
        R"({"__properties__":{"order":{"__properties__":{"asc":"x"}}}})",
        R"({"__properties__":{"search_parameters":{"__sub_type__":"",)"
        R"("__elements__":{"a":"x","b":[1]}}}})",
        R"({"__properties__":{"offset":{}}})"})
    EXPECT_ANY_THROW(ListInfo_deserialize(json(source))) << source;
}

} // namespace
