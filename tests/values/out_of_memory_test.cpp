/* Every value, container and record operation with each of its
 * allocations failing in turn: what it makes is null (or holds a null
 * element where an element's own copier or deserializer failed), what it
 * changes is as it was, what it reads keeps a leading part. The sanitizer
 * build's leak checker judges that nothing is lost. */
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "failing_malloc.h"
#include "value_types.h"

namespace {

/* An operation's target: a handle and how a caller sees and releases it. */
struct target {
  void *handle;
  value_serializer show;
  value_deleter release;
};

struct operation {
  std::string name;
  std::function<target()> fresh; /* a null handle: the operation makes one */
  std::function<void(void *&)> act;
  bool replaces = false; /* a setter: what it held need not stay */
};

Integer kCells[5];
char kText[] = "t";

/* Sources rich enough for every type: scalars read "__value__", records
 * "__properties__", containers "__elements__". */
const Json::Value kSource =
    json(R"({"__value__":12,"__sub_type__":"","__elements__":["b","c","d"],)"
         R"("__properties__":{"limit":5,"offset":2,"order":{"__properties__":)"
         R"({"asc":true,"order_by":"name"}},"search_parameters":{)"
         R"("__sub_type__":"Unicode","__elements__":{"a":"x","b":"y"}}}})");
const Json::Value kNumbers =
    json(R"({"__elements__":[2,3,4,5],"__sub_type__":""})");
const Json::Value kMembers =
    json(R"({"__sub_type__":"","__elements__":{"m":"1","n":"2"}})");

target texts() {
  list_s *list =
      list_new("Unicode", string_deleter, nullptr, nullptr, text_copier);
  for (int i = 0; i < 4; i++) // full: the next add grows the array
    list_add(list, kText);
  return {list, list_serialize, list_del};
}

target dict(value_copier copier) {
  dict_s *d = dict_new("Unicode", string_deleter, nullptr, nullptr, copier);
  dict_add(d, "a", copier != nullptr ? kText : strdup(kText));
  return {d, dict_serialize, dict_deleter};
}

target cells() {
  list_s *list = list_new("Integer", nullptr, nullptr, nullptr, nullptr);
  for (int i = 0; i < 4; i++)
    list_add(list, &kCells[i]);
  return {list, list_serialize, list_del};
}

target page() {
  result_set_s *page = result_set_new("Integer", Integer_deleter, nullptr,
                                      nullptr, Integer_copier);
  result_set_add(page, &kCells[0]);
  result_set_set_total_items(page, -1); // as a read without a total leaves it
  return {page, result_set_serialize, result_set_del};
}

target of_type(int t, void *handle = nullptr) {
  return {handle, value_types[t].write, value_types[t].release};
}

target made(value_serializer show, value_deleter release) {
  return {nullptr, show, release};
}

/* A full request whose flags are up, so that its JSON shows every field. */
void *request() {
  auto *info = static_cast<ListInfo *>(ListInfo_deserialize(kSource));
  listinfo_setOrder(info, info->order);
  listinfo_setSearch_parameters(info, info->search_parameters);
  return info;
}

Json::Value *array_shown(void *, Json::Value &out) {
  return &(out = "array");
}

std::vector<operation> operations() {
  static const target some_texts = texts(), some_entries = dict(text_copier),
                      a_page = page(),
                      a_request = of_type(LIST_INFO, request());
  static void *samples[ENVELOPED];
  std::vector<operation> all;
  for (int t = LONG; t < ENVELOPED; t++) {
    samples[t] = value_types[t].read(kSource);
    all.push_back({std::string(value_types[t].name) + " read",
                   [t] { return of_type(t); },
                   [t](void *&h) { h = value_types[t].read(kSource); }});
    all.push_back({std::string(value_types[t].name) + " copy",
                   [t] { return of_type(t); },
                   [t](void *&h) { value_types[t].copy(&h, samples[t]); }});
  }
  const std::vector<operation> more = {
      {"Long_new", [] { return of_type(LONG); },
       [](void *&h) { h = Long_new(); }},
      {"Double_new", [] { return of_type(DOUBLE); },
       [](void *&h) { h = Double_new(); }},
      {"IP_new", [] { return of_type(IPS); }, [](void *&h) { h = IP_new(); }},
      {"Ordering_new", [] { return of_type(ORDERING); },
       [](void *&h) { h = Ordering_new(); }},
      {"ListInfo_new", [] { return of_type(LIST_INFO); },
       [](void *&h) { h = ListInfo_new(); }},
      {"list_new", [] { return made(list_serialize, list_del); },
       [](void *&h) { h = list_new("Unicode", 0, 0, 0, 0); }},
      {"dict_new", [] { return made(dict_serialize, dict_deleter); },
       [](void *&h) { h = dict_new("Unicode", 0, 0, 0, 0); }},
      {"result_set_new",
       [] { return made(result_set_serialize, result_set_del); },
       [](void *&h) { h = result_set_new("Unicode", 0, 0, 0, 0); }},
      {"list_copier", [] { return made(list_serialize, list_del); },
       [](void *&h) { list_copier(&h, some_texts.handle); }},
      {"dict_copier", [] { return made(dict_serialize, dict_deleter); },
       [](void *&h) { dict_copier(&h, some_entries.handle); }},
      {"resultset_copier",
       [] { return made(result_set_serialize, result_set_del); },
       [](void *&h) { resultset_copier(&h, a_page.handle); }},
      {"ListInfo_copier, full", [] { return of_type(LIST_INFO); },
       [](void *&h) { ListInfo_copier(&h, a_request.handle); }},
      {"dict_values", [] { return made(array_shown, free); },
       [](void *&h) {
         h = dict_values(static_cast<dict_s *>(some_entries.handle));
       }},
      {"dict_keys", [] { return made(array_shown, free); },
       [](void *&h) {
         int32_t count = -1;
         dict_keys(static_cast<dict_s *>(some_entries.handle),
                   reinterpret_cast<char ***>(&h), &count);
         EXPECT_EQ(count, h != nullptr ? 1 : 0);
       }},
      {"ip_setValue", [] { return of_type(IPS, ip_cell("a")); },
       [](void *&h) { ip_setValue(h, "b"); }, true},
      {"ordering_setOrder_by",
       [] { return of_type(ORDERING, Ordering_deserialize(kSource)); },
       [](void *&h) { ordering_setOrder_by(static_cast<Ordering *>(h), "d"); },
       true},
      {"listinfo_setOrder", [] { return of_type(LIST_INFO, request()); },
       [](void *&h) {
         Ordering order = {1, kText, 3};
         listinfo_setOrder(static_cast<ListInfo *>(h), &order);
       },
       true},
      {"listinfo_setSearch_parameters",
       [] { return of_type(LIST_INFO, request()); },
       [](void *&h) {
         listinfo_setSearch_parameters(
             static_cast<ListInfo *>(h),
             static_cast<dict_s *>(some_entries.handle));
       },
       true},
      {"list_add", texts,
       [](void *&h) { list_add(static_cast<list_s *>(h), kText); }},
      {"list_add_copy, given over", cells,
       [](void *&h) {
         list_add_copy(static_cast<list_s *>(h), &kCells[4], VELMORA_FALSE);
       }},
      {"result_set_add", page,
       [](void *&h) {
         result_set_add(static_cast<result_set_s *>(h), &kCells[1]);
       }},
      {"dict_add", [] { return dict(text_copier); },
       [](void *&h) { dict_add(static_cast<dict_s *>(h), "j", kText); }},
      {"list_deserialize", texts,
       [](void *&h) { list_deserialize(static_cast<list_s *>(h), kSource); }},
      {"result_set_deserialize", page,
       [](void *&h) {
         result_set_deserialize(static_cast<result_set_s *>(h), kNumbers);
       }},
      {"dict_deserialize, copying", [] { return dict(text_copier); },
       [](void *&h) { dict_deserialize(static_cast<dict_s *>(h), kMembers); }},
      {"dict_deserialize, taking", [] { return dict(nullptr); },
       [](void *&h) { dict_deserialize(static_cast<dict_s *>(h), kMembers); }}};
  all.insert(all.end(), more.begin(), more.end());
  return all;
}

Json::Value shown(const target &t) {
  Json::Value out;
  if (t.handle != nullptr)
    t.show(t.handle, out);
  return out;
}

/* True when `part` is `whole`, or `whole` with values turned null or with
 * trailing elements (members) left out. */
bool part_of(const Json::Value &part, const Json::Value &whole) {
  if (part.isNull() || part == whole)
    return true;
  if (part.type() != whole.type() || !(part.isArray() || part.isObject()) ||
      part.size() > whole.size())
    return false;
  for (auto it = part.begin(); it != part.end(); ++it)
    if (!part_of(*it, whole.isArray() ? whole[it.index()]
                                      : whole.get(it.name(), Json::Value())))
      return false;
  return true;
}

TEST(OutOfMemory, EachAllocationFailingInTurnLosesNothing) {
  for (const operation &op : operations()) {
    Json::Value before, after;
    auto run = [&](int n) {
      target t = op.fresh();
      before = shown(t);
      static char unset;
      void *handle = t.handle != nullptr ? t.handle : &unset;
      const int allocations = with_failing_malloc(n, [&] { op.act(handle); });
      if (handle == &unset) {
        ADD_FAILURE() << op.name << " stored nothing";
        handle = nullptr;
      }
      t.handle = handle;
      after = shown(t);
      t.release(t.handle);
      return allocations;
    };
    const int allocations = run(0);
    const Json::Value whole = after;
    EXPECT_NE(whole, before) << op.name;
    EXPECT_GE(allocations, 1) << op.name;
    for (int n = 1; n <= allocations; ++n) {
      run(n);
      EXPECT_TRUE(after == before || (part_of(after, whole) &&
                                      (op.replaces || part_of(before, after))))
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
  list_s *list = list_new("X", nullptr, none, nullptr, blank);
  list_deserialize(list, json(R"({"__sub_type__":"X","__elements__":[1,2]})"));
  list_add(list, kText);
  EXPECT_EQ(list_get_nb_elements(list), 3);
  EXPECT_EQ(list_get(list, 2), nullptr);
  list_del(list);
  dict_s *d = dict_new("X", nullptr, none, nullptr, nullptr);
  dict_deserialize(
      d, json(R"({"__sub_type__":"X","__elements__":{"a":1,"b":2}})"));
  EXPECT_EQ(d->nb_elements, 2);
  d->copier = blank;
  dict_add(d, "c", kText);
  EXPECT_EQ(has_key(d, "c"), 1);
  EXPECT_EQ(dict_get(d, "c"), nullptr);
  dict_free(d);
}

} // namespace
