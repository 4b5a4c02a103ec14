/* The paging request record: limit, offset, order and search texts. */
#include <cstdlib>
#include <memory>

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

/* Copies the members `source` was given into `copy`; false when one could
 * not be copied (it is then null where its source is not). */
bool copy_members(ListInfo *copy, const ListInfo *source) {
  uint64_t mask = source->presence_mask;
  bool whole = true;
  if ((mask & kLimitGiven) != 0) {
    copy->limit = source->limit;
    copy->presence_mask = mask;
  }
  if ((mask & kOrderGiven) != 0) {
    void *order = nullptr;
    Ordering_copier(&order, source->order);
    whole = whole && (order != nullptr || source->order == nullptr);
    copy->order = static_cast<Ordering *>(order);
    copy->presence_mask = mask;
  }
  if ((mask & kSearchGiven) != 0) {
    void *parameters = nullptr;
    dict_copier(&parameters, source->search_parameters);
    whole = whole &&
            (parameters != nullptr || source->search_parameters == nullptr);
    copy->search_parameters = static_cast<dict_s *>(parameters);
    copy->presence_mask = mask;
  }
  if ((mask & kOffsetGiven) != 0) {
    copy->offset = source->offset;
    copy->presence_mask = mask;
  }
  return whole;
}

/* Replaces the member `given` marks with a copy of `value`; false, with the
 * old member staying, when memory runs out. The copy is made before the old
 * member goes: `value` may be that very member. */
template <typename Member>
bool replace_member(ListInfo *list_info, uint64_t given, Member *&member,
                    Member *value, value_copier copier, value_deleter deleter) {
  void *copy = nullptr;
  copier(&copy, value);
  if (copy == nullptr && value != nullptr)
    return false;
  if ((list_info->presence_mask & given) != 0)
    deleter(member);
  list_info->presence_mask |= given;
  member = static_cast<Member *>(copy);
  return true;
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
  velmora::set_given(list_info, &ListInfo::limit, kLimitGiven, limit);
}

void listinfo_setJsonLimit(void *handle, const Json::Value &properties) {
  if (handle != nullptr)
    listinfo_setLimit(static_cast<ListInfo *>(handle),
                      properties.get("limit", Json::Value()).asInt());
}

Ordering *listinfo_getOrder(ListInfo *list_info) {
  return list_info != nullptr ? list_info->order : nullptr;
}

void listinfo_setOrder(ListInfo *list_info, Ordering *order) {
  if (list_info != nullptr &&
      replace_member(list_info, kOrderGiven, list_info->order, order,
                     Ordering_copier, Ordering_deleter))
    list_info->order_is_set = 1;
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
  if (list_info != nullptr &&
      replace_member(list_info, kSearchGiven, list_info->search_parameters,
                     parameters, dict_copier, dict_deleter))
    list_info->search_parameters_is_set = 1;
}

void listinfo_setJsonSearch_parameters(void *handle,
                                       const Json::Value &properties) {
  ListInfo *list_info = static_cast<ListInfo *>(handle);
  if (list_info == nullptr)
    return;
  Json::Value member = properties.get("search_parameters", Json::Value());
  std::unique_ptr<dict_s, void (*)(dict_s *)> parameters(
      new_search_parameters(), dict_free);
  if (parameters == nullptr)
    return; // out of memory: the field stays as it was, not given
  if (!velmora::read_members(parameters.get(), member))
    return;
  list_info->search_parameters = parameters.release();
  list_info->presence_mask |= kSearchGiven;
}

int32_t listinfo_getOffset(ListInfo *list_info) {
  return list_info != nullptr ? list_info->offset : 0;
}

void listinfo_setOffset(ListInfo *list_info, int32_t offset) {
  velmora::set_given(list_info, &ListInfo::offset, kOffsetGiven, offset);
}

void listinfo_setJsonOffset(void *handle, const Json::Value &properties) {
  if (handle != nullptr)
    listinfo_setOffset(static_cast<ListInfo *>(handle),
                       properties.get("offset", Json::Value()).asInt());
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
  // Released on every way out but the last, a throw included.
  std::unique_ptr<ListInfo, value_deleter> list_info(ListInfo_new(),
                                                     ListInfo_deleter);
  if (list_info == nullptr)
    return nullptr;
  listinfo_setJsonLimit(list_info.get(), properties);
  listinfo_setJsonOrder(list_info.get(), properties);
  listinfo_setJsonSearch_parameters(list_info.get(), properties);
  listinfo_setJsonOffset(list_info.get(), properties);
  // A step that ran out of memory left its presence bit clear.
  if (list_info->presence_mask != kAllGiven)
    return nullptr;
  return list_info.release();
}

void ListInfo_copier(void **slot, void *handle) {
  const ListInfo *source = static_cast<const ListInfo *>(handle);
  std::unique_ptr<ListInfo, value_deleter> copy(
      source != nullptr ? ListInfo_new() : nullptr, ListInfo_deleter);
  if (copy != nullptr && !copy_members(copy.get(), source))
    copy.reset();
  *slot = copy.release();
}

void ListInfo_destroy(ListInfo *list_info) {
  if (list_info == nullptr)
    return;
  // The pointers and the mask stay as they were; init makes the record
  // usable again.
  if ((list_info->presence_mask & kOrderGiven) != 0)
    Ordering_deleter(list_info->order);
  if ((list_info->presence_mask & kSearchGiven) != 0)
    dict_deleter(list_info->search_parameters);
}

void ListInfo_deleter(void *handle) {
  ListInfo *list_info = static_cast<ListInfo *>(handle);
  if (list_info == nullptr)
    return;
  ListInfo_destroy(list_info);
  free(list_info);
}
