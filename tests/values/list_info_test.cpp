#include <string>

#include <gtest/gtest.h>

#include "container_support.h"
#include "velmora/values.h"

namespace {

std::string serialized(ListInfo *list_info) {
  Json::Value out;
  EXPECT_EQ(ListInfo_serialize(list_info, out), &out);
  return render(out);
}

dict_s *text_dict() {
  return dict_new("Unicode", string_deleter, string_deserialize, nullptr,
                  text_copier());
}

Ordering *ordering(int32_t asc, const char *order_by) {
  Ordering *o = Ordering_new();
  ordering_setAsc(o, asc);
  ordering_setOrder_by(o, order_by);
  return o;
}

/* A page request holding every field, order and two search texts. */
ListInfo *full_request() {
  ListInfo *request = ListInfo_new();
  listinfo_setLimit(request, 25);
  listinfo_setOffset(request, 50);
  Ordering *order = ordering(1, "created");
  listinfo_setOrder(request, order);
  Ordering_deleter(order);
  dict_s *search = text_dict();
  dict_add(search, "owner", const_cast<char *>("ann"));
  dict_add(search, "kind", const_cast<char *>("disk"));
  listinfo_setSearch_parameters(request, search);
  dict_free(search);
  return request;
}

const char *const kFullEnvelope =
    R"({"__properties__":{"limit":25,"offset":50,)"
    R"("order":{"__properties__":{"asc":true,"order_by":"created"},"__type__":"Ordering"},)"
    R"("search_parameters":{"__elements__":{"kind":"disk","owner":"ann"},"__sub_type__":"Unicode","__type__":"Dict"}},)"
    R"("__type__":"ListInfo"})";

/* ---- Envelope --------------------------------------------------------- */

TEST(ListInfoEnvelope, FreshRecordWritesOnlyLimitAndOffset) {
  ListInfo *request = ListInfo_new();
  EXPECT_EQ(request->order, nullptr);
  EXPECT_EQ(request->search_parameters, nullptr);
  EXPECT_EQ(request->presence_mask, 0u);
  EXPECT_EQ(
      serialized(request),
      R"({"__properties__":{"limit":0,"offset":0},"__type__":"ListInfo"})");
  ListInfo_deleter(request);
}

TEST(ListInfoEnvelope, FullRecordWritesNestedEnvelopes) {
  ListInfo *request = full_request();
  EXPECT_EQ(serialized(request), kFullEnvelope);
  ListInfo_deleter(request);
}

TEST(ListInfoEnvelope, FlagsNotMaskDecideWhatIsWritten) {
  ListInfo *request = full_request();
  request->order_is_set = 2; // only exactly 1 writes
  request->search_parameters_is_set = 0;
  EXPECT_EQ(
      serialized(request),
      R"({"__properties__":{"limit":25,"offset":50},"__type__":"ListInfo"})");
  request->presence_mask = 0; // limit and offset are written regardless
  request->order_is_set = 1;
  EXPECT_EQ(
      serialized(request),
      R"({"__properties__":{"limit":25,"offset":50,"order":{"__properties__":{"asc":true,"order_by":"created"},"__type__":"Ordering"}},"__type__":"ListInfo"})");
  request->presence_mask = 15;
  ListInfo_deleter(request);
}

/* ---- Masks, flags and setters ------------------------------------------- */

TEST(ListInfoMask, EachSetterRaisesItsBitAndOnlyTwoRaiseFlags) {
  ListInfo *request = ListInfo_new();
  listinfo_setLimit(request, 3);
  EXPECT_EQ(request->presence_mask, 1u);
  listinfo_setOffset(request, 4);
  EXPECT_EQ(request->presence_mask, 9u);
  EXPECT_EQ(request->order_is_set + request->search_parameters_is_set, 0);

  Ordering *order = ordering(0, "x");
  listinfo_setOrder(request, order);
  EXPECT_EQ(request->presence_mask, 11u);
  EXPECT_EQ(request->order_is_set, 1);
  EXPECT_EQ(request->search_parameters_is_set, 0);

  dict_s *search = text_dict();
  listinfo_setSearch_parameters(request, search);
  EXPECT_EQ(request->presence_mask, 15u);
  EXPECT_EQ(request->search_parameters_is_set, 1);
  EXPECT_EQ(listinfo_getLimit(request), 3);
  EXPECT_EQ(listinfo_getOffset(request), 4);

  // The record holds copies; the caller keeps its own.
  EXPECT_NE(listinfo_getOrder(request), order);
  EXPECT_NE(listinfo_getSearch_parameters(request), search);
  Ordering_deleter(order);
  dict_free(search);
  ListInfo_deleter(request);
}

TEST(ListInfoSetter, SettingTwiceOrFromItsOwnMembersKeepsOneCopy) {
  ListInfo *request = full_request();
  Ordering *second = ordering(0, "second");
  listinfo_setOrder(request, second); // the first copy is released
  Ordering_deleter(second);
  listinfo_setOrder(request, listinfo_getOrder(request));
  EXPECT_STREQ(ordering_getOrder_by(listinfo_getOrder(request)), "second");

  listinfo_setSearch_parameters(request,
                                listinfo_getSearch_parameters(request));
  dict_s *held = listinfo_getSearch_parameters(request);
  EXPECT_STREQ(static_cast<char *>(dict_get(held, "owner")), "ann");
  EXPECT_EQ(held->nb_elements, 2);
  ListInfo_deleter(request);
}

TEST(ListInfoSetter, KeepsTheGivenDictionarysOperations) {
  dict_s *integers =
      dict_new("Integer", Integer_deleter, nullptr, nullptr, Integer_copier);
  int32_t seven = 7;
  dict_add(integers, "n", &seven);
  ListInfo *request = ListInfo_new();
  listinfo_setSearch_parameters(request, integers);
  dict_free(integers);
  EXPECT_EQ(
      serialized(request),
      R"({"__properties__":{"limit":0,"offset":0,"search_parameters":{"__elements__":{"n":7},"__sub_type__":"Integer","__type__":"Dict"}},"__type__":"ListInfo"})");
  ListInfo_deleter(request);
}

/* ---- Reading ---------------------------------------------------------- */

TEST(ListInfoDeserialize, WithoutPropertiesEveryMemberStillExists) {
  const char *sources[] = {"null", R"({})", R"({"__properties__":null})",
                           R"({"__type__":"Ordering","__properties__":{}})"};
  for (const char *source : sources) {
    ListInfo *request =
        static_cast<ListInfo *>(ListInfo_deserialize(parse(source)));
    EXPECT_EQ(listinfo_getLimit(request), 0) << source;
    EXPECT_EQ(listinfo_getOffset(request), 0) << source;
    EXPECT_EQ(request->presence_mask, 15u) << source;
    EXPECT_EQ(request->order_is_set, 0) << source;
    EXPECT_EQ(request->search_parameters_is_set, 0) << source;

    Ordering *order = listinfo_getOrder(request);
    ASSERT_NE(order, nullptr) << source;
    EXPECT_EQ(ordering_getAsc(order), 0);
    EXPECT_STREQ(ordering_getOrder_by(order), "");
    EXPECT_EQ(order->presence_mask, 3u);

    dict_s *search = listinfo_getSearch_parameters(request);
    ASSERT_NE(search, nullptr) << source;
    EXPECT_EQ(search->nb_elements, 0);
    EXPECT_STREQ(search->sub_type, "Unicode");
    EXPECT_EQ(search->deleter, string_deleter);
    EXPECT_EQ(search->deserializer, string_deserialize);
    EXPECT_EQ(search->serializer, nullptr);
    EXPECT_EQ(search->copier, text_copier());

    EXPECT_EQ(
        serialized(request),
        R"({"__properties__":{"limit":0,"offset":0},"__type__":"ListInfo"})");
    ListInfo_deleter(request);
  }
}

TEST(ListInfoDeserialize, FullRoundTrip) {
  ListInfo *request = full_request();
  Json::Value out;
  ListInfo_serialize(request, out);
  ListInfo_deleter(request);

  ListInfo *back = static_cast<ListInfo *>(ListInfo_deserialize(out));
  EXPECT_EQ(listinfo_getLimit(back), 25);
  EXPECT_EQ(listinfo_getOffset(back), 50);
  EXPECT_EQ(ordering_getAsc(listinfo_getOrder(back)), 1);
  EXPECT_STREQ(ordering_getOrder_by(listinfo_getOrder(back)), "created");
  dict_s *search = listinfo_getSearch_parameters(back);
  char **keys = nullptr;
  int32_t count = 0;
  dict_keys(search, &keys, &count);
  ASSERT_EQ(count, 2);
  EXPECT_STREQ(keys[0], "kind"); // read in the JSON object's order
  EXPECT_STREQ(keys[1], "owner");
  free(keys);
  EXPECT_STREQ(static_cast<char *>(dict_get(search, "owner")), "ann");

  // Read records hold order and search texts but write them only once
  // their setters have been called.
  EXPECT_EQ(
      serialized(back),
      R"({"__properties__":{"limit":25,"offset":50},"__type__":"ListInfo"})");
  listinfo_setOrder(back, listinfo_getOrder(back));
  listinfo_setSearch_parameters(back, listinfo_getSearch_parameters(back));
  EXPECT_EQ(serialized(back), kFullEnvelope);
  ListInfo_deleter(back);
}

TEST(ListInfoDeserialize, UnconvertibleMemberRaisesWithoutLeaking) {
  const char *sources[] = {
      R"({"__properties__":{"limit":"ten"}})",
      R"({"__properties__":{"limit":1,"order":{"__properties__":{"asc":"x"}}}})",
      R"({"__properties__":{"order":{},"search_parameters":{"__sub_type__":"Unicode","__elements__":{"a":"x","b":[1]}}}})",
      R"({"__properties__":{"offset":{}}})",
      R"({"__properties__":7})",
  };
  for (const char *source : sources)
    EXPECT_ANY_THROW(ListInfo_deserialize(parse(source))) << source;
}

/* ---- Copies and destruction ------------------------------------------- */

TEST(ListInfoCopier, CopiesMaskedFieldsButNotFlags) {
  ListInfo *request = full_request();
  void *slot = nullptr;
  ListInfo_copier(&slot, request);
  ListInfo *copy = static_cast<ListInfo *>(slot);
  EXPECT_EQ(copy->presence_mask, 15u);
  EXPECT_EQ(copy->order_is_set, 0);
  EXPECT_EQ(copy->search_parameters_is_set, 0);
  EXPECT_EQ(listinfo_getLimit(copy), 25);
  EXPECT_EQ(listinfo_getOffset(copy), 50);
  EXPECT_NE(listinfo_getOrder(copy), listinfo_getOrder(request));
  EXPECT_NE(listinfo_getSearch_parameters(copy),
            listinfo_getSearch_parameters(request));
  ListInfo_deleter(request);
  EXPECT_STREQ(ordering_getOrder_by(listinfo_getOrder(copy)), "created");
  EXPECT_STREQ(static_cast<char *>(
                   dict_get(listinfo_getSearch_parameters(copy), "kind")),
               "disk");
  ListInfo_deleter(copy);

  ListInfo *partial = ListInfo_new();
  listinfo_setOffset(partial, 8);
  partial->limit = 99; // no bit: not copied
  ListInfo_copier(&slot, partial);
  copy = static_cast<ListInfo *>(slot);
  EXPECT_EQ(copy->presence_mask, 8u);
  EXPECT_EQ(copy->limit, 0);
  EXPECT_EQ(copy->offset, 8);
  EXPECT_EQ(copy->order, nullptr);
  ListInfo_deleter(copy);
  ListInfo_deleter(partial);
}

TEST(ListInfoDestroy, ReleasesOwnedMembersAndLeavesTheFields) {
  ListInfo request;
  ListInfo_init(&request);
  Ordering *order = ordering(1, "a");
  listinfo_setOrder(&request, order);
  Ordering_deleter(order);
  Ordering *held = request.order;
  ListInfo_destroy(&request);
  EXPECT_EQ(request.order, held);
  EXPECT_EQ(request.presence_mask, 2u);
  ListInfo_init(&request); // usable again
  EXPECT_EQ(request.order, nullptr);
  ListInfo_destroy(&request);
}

TEST(ListInfoNullHandle, OperationsOnANullRecordAreHarmless) {
  Json::Value out;
  EXPECT_EQ(ListInfo_serialize(nullptr, out), &out);
  EXPECT_TRUE(out.isNull());
  EXPECT_EQ(listinfo_getLimit(nullptr), 0);
  EXPECT_EQ(listinfo_getOffset(nullptr), 0);
  EXPECT_EQ(listinfo_getOrder(nullptr), nullptr);
  EXPECT_EQ(listinfo_getSearch_parameters(nullptr), nullptr);
  listinfo_setLimit(nullptr, 1);
  listinfo_setOffset(nullptr, 1);
  listinfo_setOrder(nullptr, nullptr);
  listinfo_setSearch_parameters(nullptr, nullptr);
  listinfo_setJsonLimit(nullptr, out);
  listinfo_setJsonOrder(nullptr, out);
  listinfo_setJsonSearch_parameters(nullptr, out);
  listinfo_setJsonOffset(nullptr, out);
  void *slot = &out;
  ListInfo_copier(&slot, nullptr);
  EXPECT_EQ(slot, nullptr);
  ListInfo_init(nullptr);
  ListInfo_destroy(nullptr);
  ListInfo_deleter(nullptr);

  // A null order or Dict releases the held one and leaves nothing to write.
  ListInfo *request = full_request();
  listinfo_setOrder(request, nullptr);
  listinfo_setSearch_parameters(request, nullptr);
  EXPECT_EQ(
      serialized(request),
      R"({"__properties__":{"limit":25,"offset":50},"__type__":"ListInfo"})");
  ListInfo_deleter(request);
}

} // namespace
