/* Every value, container and record operation with each of its
 * allocations failing in turn: what it makes is null; what it changes is
 * as it was, or holds a null element where the element's own copier or
 * deserializer failed; what it reads keeps a leading part. The sanitizer
 * build's leak checker judges that nothing is lost. */
#include <functional>
#include <vector>

#include <gtest/gtest.h>

#include "failing_malloc.h"
#include "value_types.h"

namespace {

char kText[] = "t";
Integer kCells[5];
/* Rich enough for every reader: scalars read "__value__", records
 * "__properties__", containers "__elements__". */
const Json::Value kSource =
    json(R"({"__value__":12,"__sub_type__":"","__elements__":["b","c","d"],)"
         R"("__properties__":{"limit":5,"offset":2,"order":{"__properties__":)"
         R"({"asc":true,"order_by":"name"}},"search_parameters":{)"
         R"("__sub_type__":"","__elements__":{"a":"x","b":"y"}}}})");
const Json::Value kMembers =
    json(R"({"__sub_type__":"","__elements__":{"m":"1","n":"2"}})");

/* A list of four texts (full: the next add grows it), a dictionary of one
 * (copying or taking what it is given), a page of one Integer, a request
 * with both flags up (its JSON shows every field). */
void *texts() {
  list_s *list = list_new("Unicode", string_deleter, 0, 0, text_copier);
  for (int i = 0; i < 4; i++)
    list_add(list, kText);
  return list;
}

void *dict(value_copier copier) {
  dict_s *d = dict_new("Unicode", string_deleter, 0, 0, copier);
  dict_add(d, "a", copier != nullptr ? kText : strdup(kText));
  return d;
}

void *page() {
  result_set_s *page =
      result_set_new("Integer", Integer_deleter, 0, 0, Integer_copier);
  result_set_add(page, kCells);
  result_set_set_total_items(page, -1); // as a read without a total leaves it
  return page;
}

void *request() {
  auto *info = static_cast<ListInfo *>(ListInfo_deserialize(kSource));
  listinfo_setOrder(info, info->order);
  listinfo_setSearch_parameters(info, info->search_parameters);
  return info;
}

/* True when `part` is `whole`, or `whole` with values turned null or with
 * trailing elements (members) left out. */
bool part_of(const Json::Value &part, const Json::Value &whole) {
  if (part.isNull() || part == whole)
    return true;
  if (part.type() != whole.type() || part.size() > whole.size() ||
      !(part.isArray() || part.isObject()))
    return false;
  for (auto it = part.begin(); it != part.end(); ++it)
    if (!part_of(*it, whole.isArray() ? whole[it.index()]
                                      : whole.get(it.name(), Json::Value())))
      return false;
  return true;
}

using held = std::unique_ptr<void, value_deleter>;

TEST(OutOfMemory, MakersGiveNull) {
  static void *sources[] = {texts(), dict(text_copier), page(), request()};
  std::vector<std::pair<std::function<void *()>, value_deleter>> makers = {
      {Long_new, Long_deleter},
      {Double_new, Double_deleter},
      {IP_new, IP_deleter},
      {[] { return list_new("", 0, 0, 0, 0); }, list_del},
      {[] { return dict_new("", 0, 0, 0, 0); }, dict_deleter},
      {[] { return result_set_new("", 0, 0, 0, 0); }, result_set_del},
      {[] { return dict_values((dict_s *)sources[1]); }, free},
      {[] {
         static char *unset;
         char **keys = &unset;
         int32_t count = -1;
         dict_keys((dict_s *)sources[1], &keys, &count);
         EXPECT_TRUE(keys != &unset && count == (keys != nullptr));
         return keys;
       },
       free}};
  std::vector<held> samples;
  for (int t = LONG; t < LIST_INFO; t++) { // ListInfo: see below
    const value_type &type = value_types[t];
    void *sample = samples.emplace_back(type.read(kSource), type.release).get();
    makers.push_back({[&type] { return type.read(kSource); }, type.release});
    makers.push_back({[&type, sample] {
                        void *copy = &copy;
                        type.copy(&copy, sample);
                        return copy;
                      },
                      type.release});
  }
  for (size_t i = 0; i < makers.size(); i++) {
    const auto &[make, release] = makers[i];
    void *made = nullptr;
    const int allocations = with_failing_malloc(0, [&] { made = make(); });
    EXPECT_TRUE(made != nullptr && allocations > 0) << i;
    release(made);
    for (int n = 1; n <= allocations; n++) {
      with_failing_malloc(n, [&] { made = make(); });
      EXPECT_EQ(made, nullptr) << i << ", allocation " << n;
    }
  }
}

/* What an operation acts on, fresh for each run (none: a copier makes
 * it), how a caller sees it and how it is released. */
struct target {
  void *(*fresh)();
  value_serializer show;
  value_deleter release;
};
void *none() {
  return nullptr;
}
const target kList = {none, list_serialize, list_del},
             kInfo = {none, ListInfo_serialize, ListInfo_deleter},
             kDict = {none, dict_serialize, dict_deleter},
             kPage = {none, result_set_serialize, result_set_del},
             kTexts = {texts, list_serialize, list_del},
             kCopying = {[] { return dict(text_copier); }, dict_serialize,
                         dict_deleter},
             kTaking = {[] { return dict(nullptr); }, dict_serialize,
                        dict_deleter},
             kOnePage = {page, result_set_serialize, result_set_del},
             kIP = {[] { return IP_deserialize(kSource); }, IP_serialize,
                    IP_deleter},
             kOrdering = {[] { return Ordering_deserialize(kSource); },
                          Ordering_serialize, Ordering_deleter},
             kRequest = {request, ListInfo_serialize, ListInfo_deleter};
void *const kSources[] = {texts(), dict(text_copier), page(), request()};
const Json::Value kNumbers =
    json(R"({"__sub_type__":"","__elements__":[1,2,3]})");
Ordering kOrder = {1, kText, 3};

/* A change leaves its target as it was, or holds what the whole change
 * gives with nulls (an element's own copier failing), a container read a
 * leading part of it too; a copier stores null or such a copy. */
TEST(OutOfMemory, ChangesLoseNothing) {
  const struct {
    const char *name;
    const target &on;
    void (*act)(void *&);
  } changes[] = {
      {"list_copier", kList, [](void *&h) { list_copier(&h, kSources[0]); }},
      {"ListInfo_copier", kInfo,
       [](void *&h) { ListInfo_copier(&h, kSources[3]); }},
      {"ListInfo_deserialize", kInfo,
       [](void *&h) { h = ListInfo_deserialize(kSource); }},
      {"dict_copier", kDict, [](void *&h) { dict_copier(&h, kSources[1]); }},
      {"resultset_copier", kPage,
       [](void *&h) { resultset_copier(&h, kSources[2]); }},
      {"list_add", kTexts, [](void *&h) { list_add((list_s *)h, kText); }},
      {"list_add_copy", kTexts,
       [](void *&h) {
         list_add_copy((list_s *)h, strdup("u"), VELMORA_FALSE);
       }},
      {"result_set_add", kOnePage,
       [](void *&h) { result_set_add((result_set_s *)h, kCells); }},
      {"dict_add", kCopying,
       [](void *&h) { dict_add((dict_s *)h, "j", kText); }},
      {"list_deserialize", kTexts,
       [](void *&h) { list_deserialize((list_s *)h, kSource); }},
      {"result_set_deserialize", kOnePage,
       [](void *&h) { result_set_deserialize((result_set_s *)h, kNumbers); }},
      {"dict_deserialize", kCopying,
       [](void *&h) { dict_deserialize((dict_s *)h, kMembers); }},
      {"dict_deserialize", kTaking,
       [](void *&h) { dict_deserialize((dict_s *)h, kMembers); }},
      {"ip_setValue", kIP, [](void *&h) { ip_setValue(h, "b"); }},
      {"ordering_setOrder_by", kOrdering,
       [](void *&h) { ordering_setOrder_by((Ordering *)h, "d"); }},
      {"listinfo_setOrder", kRequest,
       [](void *&h) { listinfo_setOrder((ListInfo *)h, &kOrder); }},
      {"listinfo_setSearch_parameters", kRequest, [](void *&h) {
         listinfo_setSearch_parameters((ListInfo *)h, (dict_s *)kSources[1]);
       }}};
  for (const auto &c : changes) {
    Json::Value before, after;
    const auto run = [&](int n) {
      static char unset;
      void *target = c.on.fresh();
      before = after = Json::Value();
      if (target != nullptr)
        c.on.show(target, before);
      void *slot = target != nullptr ? target : &unset;
      const int allocations = with_failing_malloc(n, [&] { c.act(slot); });
      EXPECT_NE(slot, &unset) << c.name;
      if (slot != nullptr && slot != &unset)
        c.on.show(slot, after);
      c.on.release(slot != &unset ? slot : nullptr);
      return allocations;
    };
    const int allocations = run(0);
    const Json::Value whole = after;
    EXPECT_TRUE(whole != before && allocations > 0) << c.name;
    for (int n = 1; n <= allocations; ++n) {
      run(n);
      EXPECT_TRUE(after == before ||
                  (part_of(after, whole) && (!before.isMember("__elements__") ||
                                             part_of(before, after))))
          << c.name << ", allocation " << n << " failing: " << render(after);
    }
  }
}
/* The counterpart: a null that an element's own operation gives is that
 * element, not a failure, so it is stored and counted. */
TEST(OutOfMemory, AnOperationsNullIsStoredAsTheElement) {
  const value_deserializer none = [](const Json::Value &) -> void * {
    return nullptr;
  };
  const value_copier blank = [](void **slot, void *) { *slot = nullptr; };
  list_s *list = list_new("", nullptr, none, nullptr, blank);
  dict_s *d = dict_new("", nullptr, none, nullptr, blank);
  list_deserialize(list, json(R"({"__sub_type__":"","__elements__":[1]})"));
  dict_deserialize(d, json(R"({"__sub_type__":"","__elements__":{"a":1}})"));
  list_add(list, kText);
  dict_add(d, "c", kText);
  EXPECT_EQ(list_get_nb_elements(list) + d->nb_elements, 4);
  EXPECT_TRUE(list_get(list, 1) == nullptr && has_key(d, "c") == 1 &&
              dict_get(d, "c") == nullptr);
  list_del(list);
  dict_free(d);
}

} // namespace
