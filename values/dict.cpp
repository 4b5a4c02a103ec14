/*
 * The dictionary: entries on a doubly linked ring whose head is the record
 * itself. The head is only ever compared against, never read as an entry,
 * since the record's layout is not an entry's.
 */
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "values_internal.h"
#include "velmora/values.h"

using velmora::native_kind;

namespace {

dict_entry_s *head(dict_s *dict) {
  return reinterpret_cast<dict_entry_s *>(dict);
}

dict_entry_s *find_entry(dict_s *dict, const char *key) {
  for (dict_entry_s *e = dict->first; e != head(dict); e = e->next)
    if (strcmp(e->key, key) == 0)
      return e;
  return nullptr;
}

void release_entry(dict_s *dict, dict_entry_s *entry) {
  if (dict->deleter != nullptr)
    dict->deleter(entry->value);
  free(entry->key);
  free(entry);
}

/* dict_add; false, with the ring as it was, when memory runs out. */
bool add_entry(dict_s *dict, const char *key, void *value) {
  dict_entry_s *entry = static_cast<dict_entry_s *>(calloc(1, sizeof *entry));
  if (entry == nullptr)
    return false;
  entry->key = strdup(key);
  if (entry->key == nullptr) {
    free(entry);
    return false;
  }
  // What the copier gives is kept as it is, null included.
  entry->value = velmora::stored_form(dict->copier, value);

  entry->next = head(dict);
  entry->prev = dict->last;
  if (dict->last == head(dict))
    dict->first = entry;
  else
    dict->last->next = entry;
  dict->last = entry;
  dict->nb_elements++;
  return true;
}

/* An entry placed for writing. The sort touches only this array and the
 * key texts: the key's first eight bytes, big-endian, decide most
 * comparisons; the age (insertion position) puts the oldest of equal keys
 * first. */
struct placed_entry {
  uint64_t leading;
  const char *key;
  size_t length;
  int32_t age;
};

uint64_t leading_bytes(const char *key, size_t length) {
  uint64_t bytes = 0;
  for (size_t i = 0; i < 8 && i < length; i++)
    bytes |= uint64_t{static_cast<uint8_t>(key[i])} << (56 - 8 * i);
  return bytes;
}

/* Byte order of the keys, then age. Equal leading bytes hold either the
 * same key shorter than eight bytes (the rest is zero padding) or the
 * starts of two keys at least eight bytes long. */
bool placed_before(const placed_entry &a, const placed_entry &b) {
  if (a.leading != b.leading)
    return a.leading < b.leading;
  if (a.length >= 8) {
    int order = strcmp(a.key + 8, b.key + 8);
    if (order != 0)
      return order < 0;
  }
  return a.age < b.age;
}

bool same_key(const placed_entry &a, const placed_entry &b) {
  return a.leading == b.leading && a.length == b.length &&
         (a.length <= 8 || memcmp(a.key + 8, b.key + 8, a.length - 8) == 0);
}

const size_t kPrefetchDistance = 8;

/* The writing order of a dictionary: its entries sorted by key, and for each
 * insertion position the value that a lookup of its key finds (the oldest
 * entry's). */
struct write_plan {
  std::vector<placed_entry> sorted;
  std::vector<void *> found;
};

write_plan plan_writing(dict_s *dict) {
  write_plan plan;
  size_t n = static_cast<size_t>(dict->nb_elements);
  plan.sorted.reserve(n);
  plan.found.resize(n);
  int32_t age = 0;
  for (dict_entry_s *e = dict->first; e != head(dict); e = e->next) {
    size_t length = strlen(e->key);
    plan.found[static_cast<size_t>(age)] = e->value;
    plan.sorted.push_back(
        {leading_bytes(e->key, length), e->key, length, age++});
  }
  std::sort(plan.sorted.begin(), plan.sorted.end(), placed_before);
  // The first of a run of equal keys is the oldest: its value is the one
  // every position of that key writes.
  size_t run = 0;
  for (size_t i = 0; i < n; i++) {
    if (!same_key(plan.sorted[run], plan.sorted[i]))
      run = i;
    plan.found[static_cast<size_t>(plan.sorted[i].age)] =
        plan.found[static_cast<size_t>(plan.sorted[run].age)];
  }
  return plan;
}

/* Moves the members written for positions below `written` into `elements`,
 * in the object's own (byte) order, where each insertion lands next to the
 * last one. A key written at several positions keeps its latest write. */
void insert_written(Json::Value &elements, const write_plan &plan,
                    std::vector<Json::Value> &staged, size_t written) {
  const std::vector<placed_entry> &sorted = plan.sorted;
  for (size_t i = 0; i < sorted.size(); i++) {
    // Sorted order visits keys and staged members at random in memory: ask
    // for those a few entries ahead while this one is inserted.
    if (i + kPrefetchDistance < sorted.size()) {
      const placed_entry &ahead = sorted[i + kPrefetchDistance];
      __builtin_prefetch(ahead.key);
      __builtin_prefetch(&staged[static_cast<size_t>(ahead.age)]);
    }
    const placed_entry &p = sorted[i];
    bool later_write = i + 1 < sorted.size() && same_key(p, sorted[i + 1]) &&
                       static_cast<size_t>(sorted[i + 1].age) < written;
    if (later_write || static_cast<size_t>(p.age) >= written)
      continue;
    *elements.demand(p.key, p.key + p.length) =
        std::move(staged[static_cast<size_t>(p.age)]);
  }
}

/* Where a member read goes: its dictionary, under its name. */
struct member_slot {
  dict_s *dict;
  const char *name;
};

bool store(void *target, void *value) {
  const member_slot *slot = static_cast<const member_slot *>(target);
  return add_entry(slot->dict, slot->name, value);
}

} // namespace

bool velmora::add_copies(dict_s *copy, dict_s *source) {
  for (dict_entry_s *e = source->first; e != head(source); e = e->next)
    if (!add_entry(copy, e->key, e->value))
      return false;
  return true;
}

dict_s *dict_new(const char *sub_type, value_deleter deleter,
                 value_deserializer deserializer, value_serializer serializer,
                 value_copier copier) {
  dict_s *dict = static_cast<dict_s *>(calloc(1, sizeof *dict));
  if (dict == nullptr)
    return nullptr;
  if (!velmora::set_element_type(dict, sub_type, deleter, deserializer,
                                 serializer, copier)) {
    free(dict);
    return nullptr;
  }
  dict->first = head(dict);
  dict->last = head(dict);
  return dict;
}

void dict_free(dict_s *dict) {
  if (dict == nullptr)
    return;
  dict_entry_s *e = dict->first;
  while (e != head(dict)) {
    dict_entry_s *next = e->next;
    release_entry(dict, e);
    e = next;
  }
  free(dict->sub_type);
  free(dict);
}

void dict_deleter(void *dict) {
  dict_free(static_cast<dict_s *>(dict));
}

void dict_add(dict_s *dict, const char *key, void *value) {
  if (dict != nullptr && key != nullptr)
    add_entry(dict, key, value);
}

void *dict_get(dict_s *dict, const char *key) {
  if (dict == nullptr || key == nullptr)
    return nullptr;
  dict_entry_s *entry = find_entry(dict, key);
  return entry != nullptr ? entry->value : nullptr;
}

int32_t has_key(dict_s *dict, const char *key) {
  if (dict == nullptr || key == nullptr)
    return 0;
  return find_entry(dict, key) != nullptr ? 1 : 0;
}

int32_t dict_remove(dict_s *dict, const char *key) {
  if (dict == nullptr || key == nullptr)
    return -1;
  dict_entry_s *entry = find_entry(dict, key);
  if (entry == nullptr)
    return -1;
  if (entry->prev == head(dict))
    dict->first = entry->next;
  else
    entry->prev->next = entry->next;
  if (entry->next == head(dict))
    dict->last = entry->prev;
  else
    entry->next->prev = entry->prev;
  release_entry(dict, entry);
  dict->nb_elements--;
  return 0;
}

void dict_keys(dict_s *dict, char ***keys, int32_t *count) {
  int32_t n = dict != nullptr ? dict->nb_elements : 0;
  // At least one slot: a null array then means only out of memory.
  char **array = static_cast<char **>(
      malloc(static_cast<size_t>(n > 0 ? n : 1) * sizeof(char *)));
  int32_t i = 0;
  if (array == nullptr)
    n = 0;
  else if (dict != nullptr)
    for (dict_entry_s *e = dict->first; e != head(dict); e = e->next)
      array[i++] = e->key;
  if (keys != nullptr)
    *keys = array;
  else
    free(array);
  if (count != nullptr)
    *count = n;
}

void **dict_values(dict_s *dict) {
  int32_t n = dict != nullptr ? dict->nb_elements : 0;
  void **array = static_cast<void **>(
      malloc(static_cast<size_t>(n > 0 ? n : 1) * sizeof(void *)));
  int32_t i = 0;
  if (array != nullptr && dict != nullptr)
    for (dict_entry_s *e = dict->first; e != head(dict); e = e->next)
      array[i++] = e->value;
  return array;
}

void dict_copier(void **slot, void *handle) {
  *slot = velmora::copy_container(static_cast<dict_s *>(handle));
}

Json::Value *dict_serialize(void *handle, Json::Value &out) {
  dict_s *dict = static_cast<dict_s *>(handle);
  if (dict == nullptr)
    return nullptr;
  out["__type__"] = "Dict";
  out["__sub_type__"] = dict->sub_type;
  Json::Value &elements = out["__elements__"] = Json::Value(Json::objectValue);

  // Values are written in insertion order, as a lookup per position would
  // find them, into staged members; these then go into the object in its
  // own order. What a throwing serializer leaves is the members of the
  // positions before it.
  write_plan plan = plan_writing(dict);
  std::vector<Json::Value> staged(plan.found.size());
  native_kind kind = velmora::native_kind_of(dict->sub_type);
  size_t written = 0;
  try {
    for (; written < staged.size(); written++) {
      if (dict->serializer != nullptr)
        dict->serializer(plan.found[written], staged[written]);
      else
        staged[written] = velmora::native_to_json(kind, plan.found[written]);
    }
  } catch (...) {
    insert_written(elements, plan, staged, written);
    throw;
  }
  insert_written(elements, plan, staged, written);
  return nullptr;
}

namespace velmora {

bool read_members(dict_s *dict, const Json::Value &in) {
  const Json::Value *elements = find_member(in, "__elements__");
  if (!sub_type_fits(dict->sub_type, in))
    return true;
  // Only an object has named members; anything else adds nothing.
  if (elements == nullptr || !elements->isObject())
    return true;

  // The dictionary stores its own copy when it has a copier.
  const element_reader reader = {dict->deserializer, dict->deleter,
                                 native_kind_of(dict->sub_type),
                                 dict->copier != nullptr};
  // The object's own order is ascending byte order of the names.
  for (auto it = elements->begin(); it != elements->end(); ++it) {
    std::string name = it.name();
    member_slot slot = {dict, name.c_str()};
    if (!read_element(reader, *it, store, &slot))
      return false;
  }
  return true;
}

} // namespace velmora

dict_s *dict_deserialize(dict_s *dict, const Json::Value &in) {
  if (dict != nullptr)
    velmora::read_members(dict, in);
  return dict;
}
