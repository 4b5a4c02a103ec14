/* Lists, dictionaries and pages read from text, element by element. */
#ifndef VELMORA_DETAIL_CONTAINERS_H
#define VELMORA_DETAIL_CONTAINERS_H

#include <memory>
#include <string>
#include <string_view>
#include <type_traits>

#include "velmora/detail/numbers.h"
#include "velmora/detail/walk.h"

namespace velmora::detail {

inline list_s *list_of(list_s *list) {
  return list;
}
/* The list of a ResultSet. */
inline list_s *list_of(result_set_s *set) {
  return set->list;
}

/* `value` handed over to `list`; false (and released) when it cannot be
 * added. */
inline bool hand_over(list_s *list, void *value) {
  int32_t before = list->nb_elements;
  list_add_copy(list, value, VELMORA_FALSE);
  if (list->nb_elements != before)
    return true;
  if (list->deleter != nullptr)
    list->deleter(value);
  return false;
}

/* `value` handed over to `dict` under `key`: kept, or, when the dictionary
 * keeps its copier's copy, released; false when nothing (or a null copy)
 * could be kept, and then `value` is released too. */
inline bool hand_over(dict_s *dict, const std::string &key, void *value) {
  int32_t before = dict->nb_elements;
  dict_add(dict, key.c_str(), value);
  bool kept = dict->nb_elements != before;
  bool copied = dict->copier != nullptr;
  if ((copied || !kept) && dict->deleter != nullptr)
    dict->deleter(value);
  else if (copied || !kept)
    free(value);
  return kept && (!copied || dict->last->value != nullptr);
}

/* A List has no total. */
inline bool set_total(list_s *, int64_t) {
  return false;
}
/* Nor has a Dict. */
inline bool set_total(dict_s *, int64_t) {
  return false;
}
/* A ResultSet's "__total_items__", when it is a 32-bit integer. */
inline bool set_total(result_set_s *set, int64_t total) {
  if (total < INT32_MIN || total > INT32_MAX)
    return false;
  set->total_items = static_cast<int32_t>(total);
  return true;
}

/* The members of a container's envelope but "__elements__", each once:
 * bit 1 "__type__", 2 "__sub_type__", 4 "__total_items__". */
template <typename T>
Read container_member(Cursor &c, std::string_view name, T *made,
                      std::string_view sub_type, int *seen) {
  std::string_view text;
  int64_t total = 0;
  int bit = name == "__type__"          ? 1
            : name == "__sub_type__"    ? 2
            : name == "__total_items__" ? 4
                                        : 0;
  if (bit == 0 || (*seen & bit) != 0)
    return Read::other;
  *seen |= bit;
  bool read = bit == 4 ? integer(c, &total) && set_total(made, total)
                       : raw_string(c, &text) && (bit == 1 || text == sub_type);
  return read ? Read::done : Read::other;
}

/* The "__elements__" array of a List or ResultSet, each entry read by
 * `element` and handed over; a null entry or one of another shape makes it
 * `other`. */
template <typename T> Read elements(Cursor &c, T *made, FastRead element) {
  return entries(c, [&](Cursor &c) {
    void *value = nullptr;
    Read read = element(c, &value);
    if (read == Read::done && value == nullptr)
      return Read::other;
    if (read == Read::done && !hand_over(list_of(made), value))
      return Read::other;
    return read;
  });
}

/* The "__elements__" object of a Dict, as `elements` reads an array. Its
 * keys must come in ascending byte order, as the library writes them and
 * as the tree orders them; keys in another order or repeated are `other`,
 * so that the tree decides which of them counts. */
inline Read elements(Cursor &c, dict_s *made, FastRead element) {
  std::string key;
  bool first = true;
  return members(c, [&](Cursor &c, std::string_view name) {
    if (!first && name <= std::string_view(key))
      return Read::other;
    first = false;
    key.assign(name);
    void *value = nullptr;
    Read read = element(c, &value);
    if (read == Read::done && value == nullptr)
      return Read::other;
    if (read == Read::done && !hand_over(made, key, value))
      return Read::other;
    return read;
  });
}

/* A List, ResultSet or Dict envelope of `sub_type` elements, each read by
 * `element` into the container `make` gives. */
template <typename T>
Read container(Cursor &c, std::string_view sub_type, FastRead element,
               T *(*make)(), value_deleter deleter, void **out) try {
  std::unique_ptr<T, value_deleter> made(make(), deleter);
  if (made == nullptr)
    return Read::other;
  int seen = 0, whole = std::is_same<T, result_set_s>::value ? 15 : 11;
  Read read = members(c, [&](Cursor &c, std::string_view name) {
    if (name != "__elements__" || (seen & 8) != 0)
      return container_member(c, name, made.get(), sub_type, &seen);
    seen |= 8;
    return elements(c, made.get(), element);
  });
  if (read != Read::done || seen != whole)
    return read == Read::broken ? read : Read::other;
  *out = made.release();
  return Read::done;
} catch (const std::exception &) {
  return Read::other;
}

/* `container` at the cursor, or `slow` when its shape is another. */
template <typename T>
Read read_container(Cursor &c, std::string_view sub_type, FastRead element,
                    T *(*make)(), value_deleter deleter,
                    value_deserializer slow, void **out) {
  return read_value(
      c,
      [&](Cursor &c, void **out) {
        return container(c, sub_type, element, make, deleter, out);
      },
      slow, out);
}

/* ---- Containers read from a jsoncpp tree, and copied -------------------
 * The library keeps what it read or copied when memory runs out, and a null
 * where an element could not be read or copied: such a container is not
 * whole, and generated code gives null rather than a part. */

/* The deserializer, deleter and copier of each container kind. */
inline void deserialize_into(list_s *list, const Json::Value &in) {
  list_deserialize(list, in);
}
inline void deserialize_into(dict_s *dict, const Json::Value &in) {
  dict_deserialize(dict, in);
}
inline void deserialize_into(result_set_s *set, const Json::Value &in) {
  result_set_deserialize(set, in);
}
inline value_deleter deleter_of(const list_s *) {
  return list_del;
}
inline value_deleter deleter_of(const dict_s *) {
  return dict_deleter;
}
inline value_deleter deleter_of(const result_set_s *) {
  return result_set_del;
}
inline value_copier copier_of(const list_s *) {
  return list_copier;
}
inline value_copier copier_of(const dict_s *) {
  return dict_copier;
}
inline value_copier copier_of(const result_set_s *) {
  return resultset_copier;
}

/* True when every entry of `in`'s "__elements__" became an element. */
inline bool whole(const list_s *list, const Json::Value &in) {
  const Json::Value &entries = in["__elements__"];
  if (!entries.isArray())
    return list->nb_elements == 0;
  if (entries.size() != static_cast<Json::ArrayIndex>(list->nb_elements))
    return false;
  for (Json::ArrayIndex i = 0; i < entries.size(); i++)
    if (list->elements[i] == nullptr && !entries[i].isNull())
      return false;
  return true;
}
inline bool whole(const result_set_s *set, const Json::Value &in) {
  return whole(set->list, in);
}
inline bool whole(const dict_s *dict, const Json::Value &in) {
  const Json::Value &members = in["__elements__"];
  if (!members.isObject())
    return dict->nb_elements == 0;
  if (members.size() != static_cast<Json::ArrayIndex>(dict->nb_elements))
    return false;
  const dict_entry_s *entry = dict->first;
  for (const Json::Value &member : members) {
    if (entry->value == nullptr && !member.isNull())
      return false;
    entry = entry->next;
  }
  return true;
}

/* True when `copy` holds a value wherever `source` does. */
inline bool copied(const list_s *copy, const list_s *source) {
  for (int32_t i = 0; i < source->nb_elements; i++)
    if (copy->elements[i] == nullptr && source->elements[i] != nullptr)
      return false;
  return true;
}
inline bool copied(const result_set_s *copy, const result_set_s *source) {
  return copy->list == nullptr || copied(copy->list, source->list);
}
inline bool copied(const dict_s *copy, const dict_s *source) {
  const dict_entry_s *from = source->first, *to = copy->first;
  for (int32_t i = 0; i < source->nb_elements; i++) {
    if (to->value == nullptr && from->value != nullptr)
      return false;
    from = from->next, to = to->next;
  }
  return true;
}

/* `in` read into `made`, which it takes: null unless read whole. */
template <typename T> void *read_whole(T *made, const Json::Value &in) {
  std::unique_ptr<T, value_deleter> value(made, deleter_of(made));
  if (value == nullptr)
    return nullptr;
  deserialize_into(value.get(), in);
  return whole(value.get(), in) ? value.release() : nullptr;
}

/* A copy of `source` into `*slot`: null unless copied whole. */
template <typename T> void copy_whole(void **slot, const T *source) {
  copier_of(source)(slot, const_cast<T *>(source));
  if (*slot != nullptr && !copied(static_cast<T *>(*slot), source)) {
    deleter_of(source)(*slot);
    *slot = nullptr;
  }
}

} // namespace velmora::detail

#endif
