/* The paging request record: limit, offset, order and search texts. */
#include <cstdlib>

#include "values_internal.h"
#include "velmora/values.h"

namespace {

constexpr uint64_t kLimitGiven = 1;
constexpr uint64_t kOrderGiven = 2;
constexpr uint64_t kSearchGiven = 4;
constexpr uint64_t kOffsetGiven = 8;
constexpr uint64_t kAllGiven =
    kLimitGiven | kOrderGiven | kSearchGiven | kOffsetGiven;

/* A dictionary of texts written and read as bare JSON strings. */
dict_s *new_search_parameters() {
  return dict_new("Unicode", string_deleter, string_deserialize, nullptr,
                  velmora::text_copier());
}

} // namespace

void ListInfo_init(ListInfo *list_info) {
  if (list_info == nullptr)
    return;
  list_info->limit = 0;
  list_info->order = nullptr;
  list_info->order_is_set = 0;
  list_info->search_parameters = nullptr;
  list_info->search_parameters_is_set = 0;
  list_info->offset = 0;
  list_info->presence_mask = 0;
}

ListInfo *ListInfo_new(void) {
  ListInfo *list_info = static_cast<ListInfo *>(malloc(sizeof *list_info));
  ListInfo_init(list_info); // a null record is left alone
  return list_info;
}

int32_t listinfo_getLimit(ListInfo *list_info) {
  return list_info != nullptr ? list_info->limit : 0;
}

void listinfo_setLimit(ListInfo *list_info, int32_t limit) {
  if (list_info == nullptr)
    return;
  list_info->presence_mask |= kLimitGiven;
  list_info->limit = limit;
}

void listinfo_setJsonLimit(void *handle, const Json::Value &properties) {
  ListInfo *list_info = static_cast<ListInfo *>(handle);
  if (list_info == nullptr)
    return;
  list_info->limit = properties.get("limit", Json::Value()).asInt();
  list_info->presence_mask |= kLimitGiven;
}

Ordering *listinfo_getOrder(ListInfo *list_info) {
  return list_info != nullptr ? list_info->order : nullptr;
}

void listinfo_setOrder(ListInfo *list_info, Ordering *order) {
  if (list_info == nullptr)
    return;
  // Copied before the old record goes: `order` may be that very record.
  void *copy = nullptr;
  Ordering_copier(&copy, order);
  if (copy == nullptr && order != nullptr)
    return; // out of memory: the old record stays
  list_info->order_is_set = 1;
  if (list_info->presence_mask & kOrderGiven)
    Ordering_deleter(list_info->order);
  list_info->presence_mask |= kOrderGiven;
  list_info->order = static_cast<Ordering *>(copy);
}

void listinfo_setJsonOrder(void *handle, const Json::Value &properties) {
  ListInfo *list_info = static_cast<ListInfo *>(handle);
  if (list_info == nullptr)
    return;
  void *order = Ordering_deserialize(properties.get("order", Json::Value()));
  if (order == nullptr)
    return; // out of memory: the field stays as it was, not given
  list_info->order = static_cast<Ordering *>(order);
  list_info->presence_mask |= kOrderGiven;
}

dict_s *listinfo_getSearch_parameters(ListInfo *list_info) {
  return list_info != nullptr ? list_info->search_parameters : nullptr;
}

void listinfo_setSearch_parameters(ListInfo *list_info, dict_s *parameters) {
  if (list_info == nullptr)
    return;
  // Copied before the old Dict goes: `parameters` may be that very Dict.
  void *copy = nullptr;
  dict_copier(&copy, parameters);
  if (copy == nullptr && parameters != nullptr)
    return; // out of memory: the old Dict stays
  list_info->search_parameters_is_set = 1;
  if (list_info->presence_mask & kSearchGiven)
    dict_deleter(list_info->search_parameters);
  list_info->presence_mask |= kSearchGiven;
  list_info->search_parameters = static_cast<dict_s *>(copy);
}

void listinfo_setJsonSearch_parameters(void *handle,
                                       const Json::Value &properties) {
  ListInfo *list_info = static_cast<ListInfo *>(handle);
  if (list_info == nullptr)
    return;
  Json::Value member = properties.get("search_parameters", Json::Value());
  dict_s *parameters = new_search_parameters();
  if (parameters == nullptr)
    return; // out of memory: the field stays as it was, not given
  bool whole;
  try {
    whole = velmora::read_members(parameters, member);
  } catch (...) {
    dict_free(parameters);
    throw;
  }
  if (!whole) {
    dict_free(parameters);
    return;
  }
  list_info->search_parameters = parameters;
  list_info->presence_mask |= kSearchGiven;
}

int32_t listinfo_getOffset(ListInfo *list_info) {
  return list_info != nullptr ? list_info->offset : 0;
}

void listinfo_setOffset(ListInfo *list_info, int32_t offset) {
  if (list_info == nullptr)
    return;
  list_info->presence_mask |= kOffsetGiven;
  list_info->offset = offset;
}

void listinfo_setJsonOffset(void *handle, const Json::Value &properties) {
  ListInfo *list_info = static_cast<ListInfo *>(handle);
  if (list_info == nullptr)
    return;
  list_info->offset = properties.get("offset", Json::Value()).asInt();
  list_info->presence_mask |= kOffsetGiven;
}

Json::Value *ListInfo_serialize(void *handle, Json::Value &out) {
  const ListInfo *list_info = static_cast<const ListInfo *>(handle);
  if (list_info == nullptr)
    return &out;
  out["__type__"] = "ListInfo";
  Json::Value &properties = out["__properties__"];
  properties["limit"] = list_info->limit;
  if (list_info->order_is_set == 1 && list_info->order != nullptr)
    Ordering_serialize(list_info->order, properties["order"]);
  if (list_info->search_parameters_is_set == 1 &&
      list_info->search_parameters != nullptr)
    dict_serialize(list_info->search_parameters,
                   properties["search_parameters"]);
  properties["offset"] = list_info->offset;
  return &out;
}

void *ListInfo_deserialize(const Json::Value &in) {
  Json::Value properties = in.get("__properties__", Json::Value());
  ListInfo *list_info = ListInfo_new();
  if (list_info == nullptr)
    return nullptr;
  try {
    listinfo_setJsonLimit(list_info, properties);
    listinfo_setJsonOrder(list_info, properties);
    listinfo_setJsonSearch_parameters(list_info, properties);
    listinfo_setJsonOffset(list_info, properties);
  } catch (...) {
    ListInfo_deleter(list_info);
    throw;
  }
  // A step that ran out of memory left its presence bit clear.
  if (list_info->presence_mask != kAllGiven) {
    ListInfo_deleter(list_info);
    return nullptr;
  }
  return list_info;
}

void ListInfo_copier(void **slot, void *handle) {
  const ListInfo *source = static_cast<const ListInfo *>(handle);
  if (source == nullptr) {
    *slot = nullptr;
    return;
  }
  ListInfo *copy = ListInfo_new();
  if (copy == nullptr) {
    *slot = nullptr;
    return;
  }
  uint64_t mask = source->presence_mask;
  // A member that cannot be copied is null where its source is not.
  bool whole = true;
  if (mask & kLimitGiven) {
    copy->limit = source->limit;
    copy->presence_mask = mask;
  }
  if (mask & kOrderGiven) {
    void *order = nullptr;
    Ordering_copier(&order, source->order);
    whole = whole && (order != nullptr || source->order == nullptr);
    copy->order = static_cast<Ordering *>(order);
    copy->presence_mask = mask;
  }
  if (mask & kSearchGiven) {
    void *parameters = nullptr;
    dict_copier(&parameters, source->search_parameters);
    whole = whole &&
            (parameters != nullptr || source->search_parameters == nullptr);
    copy->search_parameters = static_cast<dict_s *>(parameters);
    copy->presence_mask = mask;
  }
  if (mask & kOffsetGiven) {
    copy->offset = source->offset;
    copy->presence_mask = mask;
  }
  if (!whole) {
    ListInfo_deleter(copy);
    copy = nullptr;
  }
  *slot = copy;
}

void ListInfo_destroy(ListInfo *list_info) {
  if (list_info == nullptr)
    return;
  // The pointers and the mask stay as they were; init makes the record
  // usable again.
  if (list_info->presence_mask & kOrderGiven)
    Ordering_deleter(list_info->order);
  if (list_info->presence_mask & kSearchGiven)
    dict_deleter(list_info->search_parameters);
}

void ListInfo_deleter(void *handle) {
  ListInfo *list_info = static_cast<ListInfo *>(handle);
  if (list_info == nullptr)
    return;
  ListInfo_destroy(list_info);
  free(list_info);
}
