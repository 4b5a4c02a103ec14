/* The sort order record: a field name and a direction. */
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "values_internal.h"
#include "velmora/values.h"

namespace {

constexpr uint64_t kAscGiven = 1;
constexpr uint64_t kOrderByGiven = 2;

/* safe_free on a text slot, without reading the slot as another type. */
void release_text(char **slot) {
  void *text = *slot;
  safe_free(&text);
  *slot = static_cast<char *>(text);
}

} // namespace

void Ordering_init(Ordering *ordering) {
  if (ordering == nullptr)
    return;
  ordering->asc = 0;
  ordering->order_by = nullptr;
  ordering->presence_mask = 0;
}

Ordering *Ordering_new(void) {
  Ordering *ordering = static_cast<Ordering *>(malloc(sizeof *ordering));
  Ordering_init(ordering); // a null record is left alone
  return ordering;
}

int32_t ordering_getAsc(Ordering *ordering) {
  return ordering != nullptr ? ordering->asc : 0;
}

void ordering_setAsc(Ordering *ordering, int32_t asc) {
  velmora::set_given(ordering, &Ordering::asc, kAscGiven, asc);
}

void ordering_setJsonAsc(void *handle, const Json::Value &properties) {
  if (handle != nullptr)
    ordering_setAsc(static_cast<Ordering *>(handle),
                    properties.get("asc", Json::Value()).asBool() ? 1 : 0);
}

char *ordering_getOrder_by(Ordering *ordering) {
  return ordering != nullptr ? ordering->order_by : nullptr;
}

void ordering_setOrder_by(Ordering *ordering, const char *order_by) {
  if (ordering == nullptr)
    return;
  // Copied before the old text goes: `order_by` may be that very text.
  char *copy = nullptr;
  if (order_by != nullptr && string_copier(&copy, order_by) == nullptr)
    return; // out of memory: the old text stays
  if ((ordering->presence_mask & kOrderByGiven) != 0)
    release_text(&ordering->order_by);
  ordering->presence_mask |= kOrderByGiven;
  ordering->order_by = copy;
}

void ordering_setJsonOrder_by(void *handle, const Json::Value &properties) {
  Ordering *ordering = static_cast<Ordering *>(handle);
  if (ordering == nullptr)
    return;
  std::string text = properties.get("order_by", Json::Value()).asString();
  char *copy = strdup(text.c_str());
  if (copy == nullptr)
    return; // out of memory: the field stays as it was, not given
  ordering->order_by = copy;
  ordering->presence_mask |= kOrderByGiven;
}

Json::Value *Ordering_serialize(void *handle, Json::Value &out) {
  const Ordering *ordering = static_cast<const Ordering *>(handle);
  if (ordering == nullptr)
    return &out;
  out["__type__"] = "Ordering";
  Json::Value &properties = out["__properties__"];
  properties["asc"] = ordering->asc == 1;
  // A name never given is written empty: JSON has no null text.
  properties["order_by"] =
      ordering->order_by != nullptr ? ordering->order_by : "";
  return &out;
}

void *Ordering_deserialize(const Json::Value &in) {
  Json::Value properties = in.get("__properties__", Json::Value());
  // Released on every way out but the last, a throw included.
  std::unique_ptr<Ordering, value_deleter> ordering(Ordering_new(),
                                                    Ordering_deleter);
  if (ordering == nullptr)
    return nullptr;
  ordering_setJsonAsc(ordering.get(), properties);
  ordering_setJsonOrder_by(ordering.get(), properties);
  // A step that ran out of memory left its presence bit clear.
  if (ordering->presence_mask != (kAscGiven | kOrderByGiven))
    return nullptr;
  return ordering.release();
}

void Ordering_copier(void **slot, void *handle) {
  const Ordering *source = static_cast<const Ordering *>(handle);
  if (source == nullptr) {
    *slot = nullptr;
    return;
  }
  Ordering *copy = Ordering_new();
  if (copy == nullptr) {
    *slot = nullptr;
    return;
  }
  if ((source->presence_mask & kAscGiven) != 0) {
    copy->asc = source->asc;
    copy->presence_mask = source->presence_mask;
  }
  if ((source->presence_mask & kOrderByGiven) != 0) {
    if (source->order_by != nullptr &&
        string_copier(&copy->order_by, source->order_by) == nullptr) {
      Ordering_deleter(copy);
      copy = nullptr;
    } else {
      copy->presence_mask = source->presence_mask;
    }
  }
  *slot = copy;
}

void Ordering_destroy(Ordering *ordering) {
  if (ordering != nullptr && (ordering->presence_mask & kOrderByGiven) != 0)
    release_text(&ordering->order_by);
}

void Ordering_deleter(void *handle) {
  Ordering *ordering = static_cast<Ordering *>(handle);
  if (ordering == nullptr)
    return;
  Ordering_destroy(ordering);
  free(ordering);
}
