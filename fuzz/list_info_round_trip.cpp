/*
 * ListInfo read from arbitrary JSON: its copy writes as it does, neither
 * writing the order; with every field marked to be written, both write a
 * tree that reads and writes back the same.
 */
#include <cstdlib>

#include "../tests/support/value_types.h"

namespace {

/* The record's form, once order and search parameters are set again when
 * `whole`. */
Json::Value written(void *info, bool whole) {
  auto *record = static_cast<ListInfo *>(info);
  if (whole) {
    listinfo_setOrder(record, record->order);
    listinfo_setSearch_parameters(record, record->search_parameters);
  }
  Json::Value out;
  return *ListInfo_serialize(record, out);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  using held = std::unique_ptr<void, value_deleter>;
  Json::Value in;
  if (!parse_json(std::string(reinterpret_cast<const char *>(data), size), in))
    return 0;
  try {
    held read(ListInfo_deserialize(in), ListInfo_deleter);
    void *slot = nullptr;
    ListInfo_copier(&slot, read.get());
    held copy(slot, ListInfo_deleter);
    const Json::Value plain = written(slot, false), first = written(slot, true);
    held reread(ListInfo_deserialize(first), ListInfo_deleter);
    if (static_cast<ListInfo *>(read.get())->presence_mask != 15 ||
        plain != written(read.get(), false) ||
        plain["__properties__"].isMember("order") ||
        first != written(reread.get(), true) ||
        first != written(read.get(), true))
      abort();
  } catch (const Json::Exception &) {
  }
  return 0;
}
