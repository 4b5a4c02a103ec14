/* Containers and records when memory runs out: each allocation of an
 * operation fails in turn. The sanitizer build's leak checker judges leaks;
 * this test judges what is left. */
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "container_support.h"
#include "failing_malloc.h"
#include "velmora/values.h"

namespace {

using namespace container_test;

char kText[] = "t";
Integer kCells[5];

template <typename T> T *as(void *handle) {
  return static_cast<T *>(handle);
}

list_s *text_list(int n) {
  list_s *list =
      list_new("Unicode", string_deleter, nullptr, nullptr, text_copier());
  for (int i = 0; i < n; i++)
    list_add(list, kText);
  return list;
}

dict_s *text_dict(value_copier copier, int n) {
  dict_s *d = dict_new("Unicode", string_deleter, nullptr, nullptr, copier);
  for (int i = 0; i < n; i++)
    dict_add(d, "k", copier != nullptr ? kText : strdup(kText));
  return d;
}

const Json::Value kListInfo = parse(
    R"({"__properties__":{"limit":5,"offset":2,"order":{"__properties__":)"
    R"({"asc":true,"order_by":"name"}},"search_parameters":{"__sub_type__":)"
    R"("Unicode","__elements__":{"a":"x","b":"y"}}}})");
const Json::Value &kOrdering = kListInfo["__properties__"]["order"];

/* What an operation acts on or makes: a full list of texts, a full list
 * lending the static cells, a page of one Integer, a dictionary of one text
 * copying or taking what it is given, the records, an array. */
enum kind { texts, cells, page, dict, taking, ordering, list_info, array };
const value_serializer kSerialize[] = {
    list_serialize, list_serialize,     result_set_serialize, dict_serialize,
    dict_serialize, Ordering_serialize, ListInfo_serialize};
const value_deleter kRelease[] = {
    list_del,     list_del,         result_set_del,   dict_deleter,
    dict_deleter, Ordering_deleter, ListInfo_deleter, free};

void *fresh(kind type) {
  void *made = nullptr;
  if (type == texts)
    made = text_list(4);
  if (type == cells) {
    made = list_new("Integer", nullptr, nullptr, nullptr, nullptr);
    for (int i = 0; i < 4; i++)
      list_add(as<list_s>(made), &kCells[i]);
  }
  if (type == page) {
    made = result_set_new("Integer", Integer_deleter, nullptr, nullptr,
                          Integer_copier);
    result_set_add(as<result_set_s>(made), &kCells[0]);
  }
  if (type == dict || type == taking)
    made = text_dict(type == dict ? text_copier() : nullptr, 1);
  if (type == ordering)
    made = Ordering_deserialize(kOrdering);
  if (type == list_info) { // with both flags up, its JSON shows every field
    ListInfo *info = as<ListInfo>(made = ListInfo_deserialize(kListInfo));
    listinfo_setOrder(info, info->order);
    listinfo_setSearch_parameters(info, info->search_parameters);
  }
  return made;
}

/* What a caller can see: the JSON form, a list's count and capacity, and
 * whether a dictionary's ring reads the same both ways round. */
Json::Value show(kind type, void *value) {
  if (value == nullptr || type == array)
    return value == nullptr ? Json::Value() : Json::Value("array");
  Json::Value json;
  kSerialize[type](value, json);
  if (type == texts || type == cells)
    json["sizes"] = std::to_string(as<list_s>(value)->nb_elements) + "/" +
                    std::to_string(as<list_s>(value)->capacity);
  if (type == dict || type == taking) {
    dict_s *d = as<dict_s>(value);
    auto *head = reinterpret_cast<dict_entry_s *>(d);
    int32_t forward = 0, backward = 0;
    for (dict_entry_s *e = d->first; e != head; e = e->next)
      forward++;
    for (dict_entry_s *e = d->last; e != head; e = e->prev)
      backward++;
    json["ring"] = forward == d->nb_elements && backward == forward;
  }
  return json;
}

/* True when `part` is `whole` with some values (or all of it) null: what
 * is left when an element's own copier or deserializer runs out of memory,
 * since its null is stored as that element. */
bool with_nulls(const Json::Value &part, const Json::Value &whole) {
  if (part.isNull() || part == whole)
    return true;
  if (part.type() != whole.type() || part.size() != whole.size() ||
      !(part.isObject() || part.isArray()))
    return false;
  for (auto it = part.begin(); it != part.end(); ++it)
    if (whole.isArray()
            ? !with_nulls(*it, whole[it.index()])
            : !whole.isMember(it.name()) || !with_nulls(*it, whole[it.name()]))
      return false;
  return true;
}

/* True when each entry of `part` is in `whole` at the same index or name,
 * or is a null left there in its place. */
bool within(const Json::Value &part, const Json::Value &whole) {
  for (auto it = part.begin(); it != part.end(); ++it)
    if (!with_nulls(*it, whole.isArray() ? whole.get(it.index(), Json::Value())
                                         : whole.get(it.name(), Json::Value())))
      return false;
  return true;
}

/* A maker gives null, or what it makes with null elements, when one of its
 * allocations fails; a change leaves a fresh target as it was, or adds a
 * null element; a read keeps what its target held and adds a leading part
 * of what the whole read adds. */
enum role { makes, changes, reads };

TEST(OutOfMemory, EachAllocationFailingInTurn) {
  list_s *some_texts = text_list(5);
  dict_s *some_entries = text_dict(text_copier(), 2);
  void *a_page = fresh(page), *a_list_info = fresh(list_info);
  Ordering order = {1, kText, 3};
  const Json::Value texts_in =
      parse(R"({"__sub_type__":"","__elements__":["b","c","d"]})");
  const Json::Value cells_in =
      parse(R"({"__sub_type__":"","__elements__":[2,3,4,5]})");
  const Json::Value members_in =
      parse(R"({"__sub_type__":"","__elements__":{"m":"1"}})");
  const struct {
    const char *name;
    kind type;
    role does;
    std::function<void(void **)> act; // on the target's slot
  } cases[] = {
      {"list_new", texts, makes, [](void **t) { *t = text_list(0); }},
      {"dict_new", dict, makes, [](void **t) { *t = text_dict(nullptr, 0); }},
      {"result_set_new", page, makes,
       [](void **t) { *t = result_set_new("Unicode", 0, 0, 0, 0); }},
      {"Ordering_new", ordering, makes, [](void **t) { *t = Ordering_new(); }},
      {"ListInfo_new", list_info, makes, [](void **t) { *t = ListInfo_new(); }},
      {"list_copier", texts, makes,
       [&](void **t) { list_copier(t, some_texts); }},
      {"dict_copier", dict, makes,
       [&](void **t) { dict_copier(t, some_entries); }},
      {"resultset_copier", page, makes,
       [&](void **t) { resultset_copier(t, a_page); }},
      {"Ordering_copier", ordering, makes,
       [&](void **t) { Ordering_copier(t, &order); }},
      {"ListInfo_copier", list_info, makes,
       [&](void **t) { ListInfo_copier(t, a_list_info); }},
      {"Ordering_deserialize", ordering, makes,
       [](void **t) { *t = Ordering_deserialize(kOrdering); }},
      {"ListInfo_deserialize", list_info, makes,
       [](void **t) { *t = ListInfo_deserialize(kListInfo); }},
      {"dict_values", array, makes,
       [&](void **t) { *t = dict_values(some_entries); }},
      {"dict_keys", array, makes,
       [&](void **t) {
         char *unset = kText, **keys = &unset;
         int32_t count = -1;
         dict_keys(some_entries, &keys, &count);
         EXPECT_EQ(count, keys != nullptr ? 2 : 0);
         *t = keys;
       }},
      {"list_add", texts, changes,
       [](void **t) { list_add(as<list_s>(*t), kText); }},
      {"list_add_copy", cells, changes,
       [](void **t) {
         list_add_copy(as<list_s>(*t), &kCells[4], VELMORA_FALSE);
       }},
      {"dict_add", dict, changes,
       [](void **t) { dict_add(as<dict_s>(*t), "j", kText); }},
      {"ordering_setOrder_by", ordering, changes,
       [](void **t) { ordering_setOrder_by(as<Ordering>(*t), "d"); }},
      {"listinfo_setOrder", list_info, changes,
       [&](void **t) { listinfo_setOrder(as<ListInfo>(*t), &order); }},
      {"listinfo_setSearch_parameters", list_info, changes,
       [&](void **t) {
         listinfo_setSearch_parameters(as<ListInfo>(*t), some_entries);
       }},
      {"list_deserialize", texts, reads,
       [&](void **t) { list_deserialize(as<list_s>(*t), texts_in); }},
      {"result_set_deserialize", page, reads,
       [&](void **t) {
         result_set_deserialize(as<result_set_s>(*t), cells_in);
       }},
      {"dict_deserialize, copying", dict, reads,
       [&](void **t) { dict_deserialize(as<dict_s>(*t), members_in); }},
      {"dict_deserialize, taking", taking, reads,
       [&](void **t) { dict_deserialize(as<dict_s>(*t), members_in); }},
  };
  for (const auto &c : cases) {
    Json::Value before, after;
    auto run = [&](int n) {
      static char unset;
      void *target = c.does == makes ? &unset : fresh(c.type);
      before = c.does == makes ? Json::Value() : show(c.type, target);
      const int allocations = with_failing_malloc(n, [&] { c.act(&target); });
      if (target == &unset) {
        ADD_FAILURE() << c.name << " stored nothing";
        target = nullptr;
      }
      after = show(c.type, target);
      kRelease[c.type](target);
      return allocations;
    };
    const int allocations = run(0);
    const Json::Value whole = after;
    ASSERT_NE(whole, before) << c.name;
    for (int n = 1; n <= allocations; ++n) {
      run(n);
      SCOPED_TRACE(std::string(c.name) + ", allocation " + std::to_string(n) +
                   " failing: " + render(after));
      if (c.does != reads) {
        EXPECT_TRUE(after == before || with_nulls(after, whole));
        continue;
      }
      EXPECT_TRUE(within(before["__elements__"], after["__elements__"]));
      EXPECT_TRUE(within(after["__elements__"], whole["__elements__"]));
    }
  }
  list_del(some_texts);
  dict_free(some_entries);
  result_set_del(as<result_set_s>(a_page));
  ListInfo_deleter(a_list_info);
}

/* The counterpart: a null that an element's own operation gives is that
 * element, not a failure, so it is stored and counted. */
TEST(OutOfMemory, AnOperationsNullIsStoredAsTheElement) {
  const value_deserializer none = [](const Json::Value &) -> void * {
    return nullptr;
  };
  const value_copier blank = [](void **slot, void *) { *slot = nullptr; };
  const Json::Value source =
      parse(R"({"__sub_type__":"X","__elements__":{"a":1,"b":2}})");
  list_s *list = list_new("X", nullptr, none, nullptr, blank);
  list_deserialize(list, parse(R"({"__sub_type__":"X","__elements__":[1,2]})"));
  list_add(list, kText);
  EXPECT_EQ(list_get_nb_elements(list), 3);
  EXPECT_EQ(list_get(list, 2), nullptr);
  list_del(list);
  dict_s *d = dict_new("X", nullptr, none, nullptr, nullptr);
  dict_deserialize(d, source);
  EXPECT_EQ(d->nb_elements, 2);
  d->copier = blank;
  dict_add(d, "c", kText);
  EXPECT_EQ(has_key(d, "c"), 1);
  EXPECT_EQ(dict_get(d, "c"), nullptr);
  dict_free(d);
}

} // namespace
