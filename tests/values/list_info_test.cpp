/* The paging request record: envelope, flags, presence bits and copies. */
#include <string>

#include <gtest/gtest.h>

#include "container_support.h"
#include "velmora/values.h"

namespace {

using namespace container_test;

std::string serialized(ListInfo *list_info) {
  Json::Value out;
  EXPECT_EQ(ListInfo_serialize(list_info, out), &out);
  return render(out);
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
                            nullptr, text_copier());
  dict_add(search, "owner", const_cast<char *>("ann"));
  dict_add(search, "kind", const_cast<char *>("disk"));
  listinfo_setSearch_parameters(request, search);
  dict_free(search);
  return request;
}

const char *const kPlain =
    R"({"__properties__":{"limit":25,"offset":50},"__type__":"ListInfo"})";
const char *const kFull =
    R"({"__properties__":{"limit":25,"offset":50,"order":{"__properties__":)"
    R"({"asc":true,"order_by":"created"},"__type__":"Ordering"},)"
    R"("search_parameters":{"__elements__":{"kind":"disk","owner":"ann"},)"
    R"("__sub_type__":"Unicode","__type__":"Dict"}},"__type__":"ListInfo"})";

TEST(ListInfo, FlagsNotTheMaskDecideWhatIsWritten) {
  ListInfo *request = ListInfo_new();
  EXPECT_EQ(serialized(request), R"({"__properties__":{"limit":0,"offset":0},)"
                                 R"("__type__":"ListInfo"})");
  ListInfo_deleter(request);

  request = full_request();
  EXPECT_EQ(serialized(request), kFull);
  request->order_is_set = 2; // only exactly 1 writes
  request->search_parameters_is_set = 0;
  EXPECT_EQ(serialized(request), kPlain);
  ListInfo_deleter(request);

  request = full_request(); // set to nothing: nothing to write
  listinfo_setOrder(request, nullptr);
  listinfo_setSearch_parameters(request, nullptr);
  EXPECT_EQ(serialized(request), kPlain);
  ListInfo_deleter(request);
}

TEST(ListInfo, SettersRaiseBitsAndFlagsAndKeepOneOwnedCopy) {
  ListInfo *request = ListInfo_new();
  listinfo_setLimit(request, 3);
  listinfo_setOffset(request, 4);
  EXPECT_EQ(request->presence_mask, 9u);
  EXPECT_EQ(request->order_is_set + request->search_parameters_is_set, 0);
  Ordering *order = Ordering_new();
  listinfo_setOrder(request, order);
  EXPECT_EQ(request->presence_mask, 11u);
  EXPECT_EQ(request->order_is_set, 1);
  EXPECT_NE(listinfo_getOrder(request), order); // a copy; ours stays ours
  listinfo_setOrder(request, order);            // the first copy is released
  listinfo_setOrder(request, listinfo_getOrder(request));
  Ordering_deleter(order);
  dict_s *search = dict_new("Integer", nullptr, nullptr, nullptr, nullptr);
  listinfo_setSearch_parameters(request, search);
  EXPECT_EQ(request->presence_mask, 15u);
  EXPECT_EQ(request->search_parameters_is_set, 1);
  EXPECT_NE(listinfo_getSearch_parameters(request), search);
  dict_free(search);
  listinfo_setSearch_parameters(request,
                                listinfo_getSearch_parameters(request));
  EXPECT_EQ(serialized(request),
            R"({"__properties__":{"limit":3,"offset":4,"order":)"
            R"({"__properties__":{"asc":false,"order_by":""},)"
            R"("__type__":"Ordering"},"search_parameters":{"__elements__":)"
            R"({},"__sub_type__":"Integer","__type__":"Dict"}},)"
            R"("__type__":"ListInfo"})");
  ListInfo_deleter(request);
}

TEST(ListInfo, ReadWithoutPropertiesEveryMemberStillExists) {
  for (const char *source :
       {"null", R"({"__type__":"Ordering","__properties__":{}})"}) {
    ListInfo *request =
        static_cast<ListInfo *>(ListInfo_deserialize(parse(source)));
    EXPECT_EQ(listinfo_getLimit(request), 0) << source;
    EXPECT_EQ(listinfo_getOffset(request), 0) << source;
    EXPECT_EQ(request->presence_mask, 15u) << source;
    EXPECT_STREQ(ordering_getOrder_by(listinfo_getOrder(request)), "");
    dict_s *search = listinfo_getSearch_parameters(request);
    EXPECT_EQ(search->nb_elements, 0);
    EXPECT_STREQ(search->sub_type, "Unicode");
    EXPECT_EQ(search->deleter, string_deleter);
    EXPECT_EQ(search->deserializer, string_deserialize);
    EXPECT_EQ(search->serializer, nullptr);
    EXPECT_EQ(search->copier, text_copier());
    ListInfo_deleter(request);
  }
  /* Members that cannot be converted raise; nothing is left behind. */
  for (const char *source :
       {R"({"__properties__":{"limit":"ten"}})",
        R"({"__properties__":{"order":{"__properties__":{"asc":"x"}}}})",
        R"({"__properties__":{"search_parameters":{"__sub_type__":"",)"
        R"("__elements__":{"a":"x","b":[1]}}}})",
        R"({"__properties__":{"offset":{}}})"})
    EXPECT_ANY_THROW(ListInfo_deserialize(parse(source))) << source;
}

/* Read back, a request writes order and search parameters only once they
 * are set again: reading and copying raise no flag. */
TEST(ListInfo, FullRoundTripWritesMembersOnlyOnceSet) {
  ListInfo *request = full_request();
  Json::Value out;
  ListInfo_serialize(request, out);
  ListInfo_deleter(request);

  ListInfo *back = static_cast<ListInfo *>(ListInfo_deserialize(out));
  EXPECT_EQ(serialized(back), kPlain);
  void *slot = nullptr;
  ListInfo_copier(&slot, back);
  ListInfo *copy = static_cast<ListInfo *>(slot);
  EXPECT_EQ(copy->presence_mask, 15u);
  EXPECT_NE(listinfo_getOrder(copy), listinfo_getOrder(back));
  EXPECT_NE(listinfo_getSearch_parameters(copy),
            listinfo_getSearch_parameters(back));
  EXPECT_EQ(serialized(copy), kPlain);
  ListInfo_deleter(back);

  listinfo_setOrder(copy, listinfo_getOrder(copy));
  listinfo_setSearch_parameters(copy, listinfo_getSearch_parameters(copy));
  EXPECT_EQ(serialized(copy), kFull);
  ListInfo_deleter(copy);
}

TEST(ListInfo, CopierAndDestroyFollowTheMask) {
  ListInfo partial;
  ListInfo_init(&partial);
  listinfo_setOffset(&partial, 8);
  partial.limit = 99; // no bit: not copied
  void *slot = nullptr;
  ListInfo_copier(&slot, &partial);
  ListInfo *copy = static_cast<ListInfo *>(slot);
  EXPECT_EQ(copy->presence_mask, 8u);
  EXPECT_EQ(copy->limit, 0);
  EXPECT_EQ(copy->offset, 8);
  EXPECT_EQ(copy->order, nullptr);
  ListInfo_deleter(copy);

  Ordering *order = Ordering_new();
  listinfo_setOrder(&partial, order);
  Ordering_deleter(order);
  Ordering *held = partial.order;
  ListInfo_destroy(&partial); // releases the order, leaves the fields
  EXPECT_EQ(partial.order, held);
  EXPECT_EQ(partial.presence_mask, 10u);
}

} // namespace
