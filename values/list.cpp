/* The list: a contiguous, growable array of element handles. */
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iostream>

#include "values_internal.h"
#include "velmora/values.h"

using velmora::native_kind;

namespace {

/* Stores `element` in the next slot, doubling the array when it is full;
 * false, with the list as it was, when there is no slot to be had. */
bool append(list_s *list, void *element) {
  if (list->nb_elements == INT32_MAX)
    return false;
  if (list->nb_elements == list->capacity) {
    int32_t capacity =
        list->capacity > INT32_MAX / 2 ? INT32_MAX : list->capacity * 2;
    void **elements = static_cast<void **>(realloc(
        list->elements, static_cast<size_t>(capacity) * sizeof(void *)));
    if (elements == nullptr)
      return false;
    list->elements = elements;
    list->capacity = capacity;
  }
  list->elements[list->nb_elements++] = element;
  return true;
}

/* list_add_copy; false when nothing was added. */
bool add(list_s *list, void *value, bool copy) {
  if (!copy)
    return append(list, value);
  // What the copier gives is kept as it is, null included: a null copy is
  // the copier's answer, which the list cannot tell from any other.
  void *element = velmora::stored_form(list->copier, value);
  if (append(list, element))
    return true;
  if (list->copier != nullptr)
    velmora::discard_element(list->deleter, element);
  return false;
}

bool store(void *list, void *element) {
  return append(static_cast<list_s *>(list), element);
}

} // namespace

bool velmora::add_copies(list_s *copy, const list_s *source) {
  for (int32_t i = 0; i < source->nb_elements; i++)
    if (!add(copy, source->elements[i], true))
      return false;
  return true;
}

list_s *list_new(const char *sub_type, value_deleter deleter,
                 value_deserializer deserializer, value_serializer serializer,
                 value_copier copier) {
  list_s *list = static_cast<list_s *>(malloc(sizeof *list));
  if (list == nullptr)
    return nullptr;
  list->nb_elements = 0;
  list->capacity = 4;
  list->elements = static_cast<void **>(malloc(4 * sizeof(void *)));
  bool typed = velmora::set_element_type(list, sub_type, deleter, deserializer,
                                         serializer, copier);
  if (list->elements == nullptr || !typed) {
    free(list->sub_type);
    free(list->elements);
    free(list);
    return nullptr;
  }
  return list;
}

void list_del(void *handle) {
  list_s *list = static_cast<list_s *>(handle);
  if (list == nullptr)
    return;
  if (list->deleter != nullptr)
    for (int32_t i = 0; i < list->nb_elements; i++)
      list->deleter(list->elements[i]);
  free(list->sub_type);
  free(list->elements);
  free(list);
}

void list_add_copy(list_s *list, void *value, bool_t copy) {
  if (list != nullptr)
    add(list, value, copy != VELMORA_FALSE);
}

void list_add(list_s *list, void *value) {
  list_add_copy(list, value, VELMORA_TRUE);
}

void *list_get(list_s *list, int32_t index) {
  if (list == nullptr || index < 0 || index >= list->nb_elements)
    return nullptr;
  return list->elements[index];
}

int32_t list_get_nb_elements(list_s *list) {
  return list != nullptr ? list->nb_elements : 0;
}

void list_copier(void **slot, void *handle) {
  *slot = velmora::copy_container(static_cast<list_s *>(handle));
}

int32_t list_compare(list_s *a, list_s *b) {
  if (a == nullptr || b == nullptr || strcmp(a->sub_type, b->sub_type) != 0)
    return -1;
  return a->nb_elements == b->nb_elements ? 1 : -2;
}

Json::Value *list_serialize(void *handle, Json::Value &out) {
  const list_s *list = static_cast<const list_s *>(handle);
  if (list == nullptr)
    return &out;
  out["__type__"] = "List";
  out["__sub_type__"] = list->sub_type;

  Json::Value elements(Json::arrayValue);
  native_kind kind = velmora::native_kind_of(list->sub_type);
  for (int32_t i = 0; i < list->nb_elements; i++) {
    if (list->serializer != nullptr)
      list->serializer(list->elements[i], elements.append(Json::Value()));
    else
      elements.append(velmora::native_to_json(kind, list->elements[i]));
  }
  out["__elements__"] = std::move(elements);
  return &out;
}

list_s *list_deserialize(list_s *list, const Json::Value &in) {
  if (list == nullptr)
    return nullptr;
  const Json::Value *elements = velmora::find_member(in, "__elements__");
  if (!velmora::sub_type_fits(list->sub_type, in)) {
    std::cout << "Out the loop";
    return list;
  }
  // Only an array has entries to read by position; an object's members
  // cannot be reached that way, so such a source adds nothing.
  if (elements == nullptr || !elements->isArray())
    return list;

  // Walked in order rather than looked up by position, which costs a tree
  // search per entry; positions the array never set read as null.
  const velmora::element_reader reader = {
      list->deserializer, list->deleter,
      velmora::native_kind_of(list->sub_type), false};
  Json::ArrayIndex position = 0;
  // Reading stops where memory runs out; what was read so far stays.
  for (auto it = elements->begin(); it != elements->end(); ++it) {
    for (; position < it.index(); position++)
      if (!velmora::read_element(reader, Json::Value::nullSingleton(), store,
                                 list))
        return list;
    if (!velmora::read_element(reader, *it, store, list))
      return list;
    position++;
  }
  return list;
}
