/* Every allocating value, container and record operation with each of its
 * allocations failing in turn. What it makes is null, what it changes is
 * as it was; or, where only an element's own copier or deserializer
 * failed, it holds that null as the element; a container read keeps a
 * leading part. The sanitizer build's leak checker judges that nothing is
 * lost. */
#include <functional>
#include <vector>

#include <gtest/gtest.h>

#include "failing_malloc.h"
#include "value_types.h"

namespace {

char kText[] = "t";
Integer kCell;
/* Rich enough for every reader: scalars read "__value__", records
 * "__properties__", containers "__elements__". */
const Json::Value kSource = json(
    R"({"__value__":12,"__sub_type__":"","__elements__":["a","b","c","d"],)"
    R"("__properties__":{"limit":5,"order":{"__properties__":{"asc":true,)"
    R"("order_by":"n"}},"search_parameters":{"__sub_type__":"",)"
    R"("__elements__":{"a":"x","b":"y"}}}})");
const Json::Value kNumbers =
    json(R"({"__sub_type__":"","__elements__":[1,2,3,4,5]})");
const Json::Value kMembers =
    json(R"({"__sub_type__":"","__elements__":{"m":"1","n":"2"}})");

/* Four texts (full: the next add grows the array), five Integers (a copy
 * grows its array), texts by name (copied in, or taken as read), a
 * request. */
void *texts() {
  return list_deserialize(
      list_new("Unicode", string_deleter, 0, 0, text_copier), kSource);
}
void *page() {
  return result_set_deserialize(
      result_set_new("Integer", Integer_deleter, 0, 0, Integer_copier),
      kNumbers);
}
void *dict(value_copier copier) {
  return dict_deserialize(
      dict_new("", string_deleter, string_deserialize, 0, copier),
      kSource["__properties__"]["search_parameters"]);
}
void *copying() {
  return dict(text_copier);
}
void *taking() {
  return dict(nullptr);
}
void *request() {
  return ListInfo_deserialize(kSource);
}
void *ordering() {
  return Ordering_new();
}
void *const kFrom[] = {texts(), page(), copying(), request()};

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

Json::Value *array_shown(void *, Json::Value &out) {
  return &(out = "array");
}

/* How a caller shows and releases what an operation makes or changes. */
struct shape {
  value_serializer show;
  value_deleter release;
};
const shape kList{list_serialize, list_del},
    kPage{result_set_serialize, result_set_del},
    kDict{dict_serialize, dict_deleter}, kArray{array_shown, free},
    kIP{IP_serialize, IP_deleter},
    kOrdering{Ordering_serialize, Ordering_deleter},
    kRequest{ListInfo_serialize, ListInfo_deleter};

struct operation {
  std::string name;
  shape is;
  void *(*fresh)(); /* a new target; null when the operation makes it */
  std::function<void(void *&)> act; /* on the slot of the target */
};

std::vector<operation> operations() {
  static std::vector<std::unique_ptr<void, value_deleter>> samples;
  std::vector<operation> all = {
      {"list_new", kList, 0, [](void *&h) { h = list_new("", 0, 0, 0, 0); }},
      {"result_set_new", kPage, 0,
       [](void *&h) { h = result_set_new("", 0, 0, 0, 0); }},
      {"dict_new", kDict, 0, [](void *&h) { h = dict_new("", 0, 0, 0, 0); }},
      {"Ordering_new", kOrdering, 0, [](void *&h) { h = Ordering_new(); }},
      {"ListInfo_new", kRequest, 0, [](void *&h) { h = ListInfo_new(); }},
      {"list_copier", kList, 0, [](void *&h) { list_copier(&h, kFrom[0]); }},
      {"resultset_copier", kPage, 0,
       [](void *&h) { resultset_copier(&h, kFrom[1]); }},
      {"dict_copier", kDict, 0, [](void *&h) { dict_copier(&h, kFrom[2]); }},
      {"dict_keys", kArray, 0,
       [](void *&h) {
         int32_t count = -1;
         dict_keys((dict_s *)kFrom[2], (char ***)&h, &count);
         EXPECT_EQ(count, h != nullptr ? 2 : 0);
       }},
      {"dict_values", kArray, 0,
       [](void *&h) { h = dict_values((dict_s *)kFrom[2]); }},
      {"list_add", kList, texts,
       [](void *&h) { list_add((list_s *)h, kText); }},
      {"list_deserialize", kList, texts,
       [](void *&h) { list_deserialize((list_s *)h, kSource); }},
      {"result_set_add", kPage, page,
       [](void *&h) { result_set_add((result_set_s *)h, &kCell); }},
      {"result_set_deserialize", kPage, page,
       [](void *&h) { result_set_deserialize((result_set_s *)h, kNumbers); }},
      {"dict_add", kDict, copying,
       [](void *&h) { dict_add((dict_s *)h, "j", kText); }},
      {"dict_deserialize, copying", kDict, copying,
       [](void *&h) { dict_deserialize((dict_s *)h, kMembers); }},
      {"dict_deserialize, taking", kDict, taking,
       [](void *&h) { dict_deserialize((dict_s *)h, kMembers); }},
      {"ip_setValue", kIP, IP_new, [](void *&h) { ip_setValue(h, "b"); }},
      {"ordering_setOrder_by", kOrdering, ordering,
       [](void *&h) { ordering_setOrder_by((Ordering *)h, "d"); }},
      {"listinfo_setOrder", kRequest, request,
       [](void *&h) {
         listinfo_setOrder((ListInfo *)h, ((ListInfo *)kFrom[3])->order);
       }},
      {"listinfo_setSearch_parameters", kRequest, request, [](void *&h) {
         listinfo_setSearch_parameters((ListInfo *)h, (dict_s *)kFrom[2]);
       }}};
  for (int t = LONG; t < ENVELOPED; t++) {
    const value_type &type = value_types[t];
    const shape is = {type.write, type.release};
    void *sample = samples.emplace_back(type.read(kSource), type.release).get();
    all.push_back({type.name + std::string(" read"), is, 0,
                   [&type](void *&h) { h = type.read(kSource); }});
    all.push_back({type.name + std::string(" copy"), is, 0,
                   [&type, sample](void *&h) { type.copy(&h, sample); }});
  }
  return all;
}

/* Runs `op` with allocation `n` failing (0: none): what its target showed
 * before and after; returns how many allocations it made. */
int run(const operation &op, int n, Json::Value &before, Json::Value &after) {
  static char unset; // a copier must store, even a null
  void *target = op.fresh ? op.fresh() : nullptr;
  void *slot = target ? target : &unset;
  before = after = Json::Value();
  if (target != nullptr)
    op.is.show(target, before);
  const int allocations = with_failing_malloc(n, [&] { op.act(slot); });
  EXPECT_NE(slot, &unset) << op.name;
  slot = slot != &unset ? slot : nullptr;
  if (slot != nullptr)
    op.is.show(slot, after);
  op.is.release(slot);
  return allocations;
}

TEST(OutOfMemory, EachAllocationFailingInTurnLosesNothing) {
  for (const operation &op : operations()) {
    Json::Value before, whole, after;
    const int allocations = run(op, 0, before, whole);
    EXPECT_TRUE(whole != before && allocations > 0) << op.name;
    for (int n = 1; n <= allocations; ++n) {
      run(op, n, before, after);
      EXPECT_TRUE(after == before ||
                  (part_of(after, whole) && (!before.isMember("__elements__") ||
                                             part_of(before, after))))
          << op.name << ", allocation " << n << " failing: " << render(after);
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
  list_s *list = list_deserialize(list_new("", 0, none, 0, blank), kSource);
  dict_s *d = dict_deserialize(dict_new("", 0, none, 0, blank), kMembers);
  list_add(list, kText);
  dict_add(d, "c", kText);
  EXPECT_EQ(list_get_nb_elements(list) + d->nb_elements, 8);
  EXPECT_TRUE(list_get(list, 4) == nullptr && dict_get(d, "c") == nullptr &&
              has_key(d, "c") == 1);
  list_del(list);
  dict_free(d);
}

} // namespace
