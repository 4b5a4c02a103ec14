/*
 * ListInfo read from arbitrary JSON: its copy writes as it does; with every
 * field marked to be written it writes a tree that reads and writes back
 * the same.
 */
#include <cstdlib>

#include "../tests/support/value_types.h"

namespace {

using held = std::unique_ptr<void, value_deleter>;

/* The record's form once order and search parameters are set again. */
Json::Value written_whole(ListInfo *info) {
  listinfo_setOrder(info, listinfo_getOrder(info));
  listinfo_setSearch_parameters(info, listinfo_getSearch_parameters(info));
  Json::Value out;
  ListInfo_serialize(info, out);
  return out;
}

void round_trip(const Json::Value &in) {
  held read(ListInfo_deserialize(in), ListInfo_deleter),
      copy(nullptr, ListInfo_deleter);
  auto *info = static_cast<ListInfo *>(read.get());
  void *slot = nullptr;
  ListInfo_copier(&slot, info);
  copy.reset(slot);
  Json::Value plain, plain_copy;
  ListInfo_serialize(info, plain);
  ListInfo_serialize(slot, plain_copy);
  if (info->presence_mask != 15 || plain != plain_copy ||
      plain["__properties__"].isMember("order"))
    abort();
  const Json::Value first = written_whole(info);
  held reread(ListInfo_deserialize(first), ListInfo_deleter);
  if (first != written_whole(static_cast<ListInfo *>(reread.get())) ||
      first != written_whole(static_cast<ListInfo *>(slot)))
    abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Json::Value in;
  if (!parse_json(std::string(reinterpret_cast<const char *>(data), size), in))
    return 0;
  try {
    round_trip(in);
  } catch (const Json::Exception &) {
  }
  return 0;
}
