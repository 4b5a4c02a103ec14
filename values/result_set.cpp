/* The result page: a list plus the total it is a page of. */
#include <cstdint>
#include <cstdlib>

#include "values_internal.h"
#include "velmora/values.h"

result_set_s *result_set_new(const char *sub_type, value_deleter deleter,
                             value_deserializer deserializer,
                             value_serializer serializer, value_copier copier) {
  result_set_s *result_set =
      static_cast<result_set_s *>(malloc(sizeof *result_set));
  if (result_set == nullptr)
    return nullptr;
  result_set->list =
      list_new(sub_type, deleter, deserializer, serializer, copier);
  if (result_set->list == nullptr) {
    free(result_set);
    return nullptr;
  }
  result_set->total_items = 0;
  return result_set;
}

void result_set_del(void *handle) {
  result_set_s *result_set = static_cast<result_set_s *>(handle);
  if (result_set == nullptr)
    return;
  list_del(result_set->list);
  free(result_set);
}

void result_set_add(result_set_s *result_set, void *value) {
  if (result_set != nullptr)
    list_add(result_set->list, value);
}

void *result_set_get(result_set_s *result_set, int32_t index) {
  return result_set != nullptr ? list_get(result_set->list, index) : nullptr;
}

int32_t result_get_nb_elements(result_set_s *result_set) {
  return result_set != nullptr ? list_get_nb_elements(result_set->list) : 0;
}

int32_t result_set_get_total_items(result_set_s *result_set) {
  return result_set != nullptr ? result_set->total_items : 0;
}

void result_set_set_total_items(result_set_s *result_set, int32_t total_items) {
  if (result_set != nullptr)
    result_set->total_items = total_items;
}

Json::Value *result_set_serialize(void *handle, Json::Value &out) {
  const result_set_s *result_set = static_cast<const result_set_s *>(handle);
  if (result_set == nullptr)
    return &out;
  list_serialize(result_set->list, out);
  out["__total_items__"] = result_set->total_items;
  out["__type__"] = "ResultSet";
  return &out;
}

result_set_s *result_set_deserialize(result_set_s *result_set,
                                     const Json::Value &in) {
  if (result_set == nullptr)
    return nullptr;
  list_deserialize(result_set->list, in);
  const Json::Value *total = velmora::find_member(in, "__total_items__");
  result_set->total_items = total != nullptr ? total->asInt() : -1;
  return result_set;
}

void resultset_copier(void **slot, void *handle) {
  const result_set_s *source = static_cast<const result_set_s *>(handle);
  if (source == nullptr) {
    *slot = nullptr;
    return;
  }
  void *list;
  list_copier(&list, source->list);
  result_set_s *copy = nullptr;
  // A list that cannot be copied is null where its source is not.
  if (list != nullptr || source->list == nullptr)
    copy = static_cast<result_set_s *>(malloc(sizeof *copy));
  if (copy != nullptr) {
    copy->list = static_cast<list_s *>(list);
    copy->total_items = source->total_items;
  } else {
    list_del(list);
  }
  *slot = copy;
}
