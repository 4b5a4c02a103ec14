/*
 * ListInfo read from arbitrary JSON, written with every field marked to be
 * written, read again and written again: the two trees must be equal, and
 * the second record must hold what the first one held.
 */
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

#include "json_input.h"

namespace {

/* A record that writes every field of `read`, through the setters. */
ListInfo *writable_copy(ListInfo *read) {
  ListInfo *info = ListInfo_new();
  listinfo_setLimit(info, listinfo_getLimit(read));
  listinfo_setOffset(info, listinfo_getOffset(read));
  listinfo_setOrder(info, listinfo_getOrder(read));
  listinfo_setSearch_parameters(info, listinfo_getSearch_parameters(read));
  return info;
}

std::map<std::string, std::string> parameters(dict_s *dict) {
  std::map<std::string, std::string> texts;
  for (dict_entry_s *entry = dict->first;
       entry != reinterpret_cast<dict_entry_s *>(dict); entry = entry->next)
    texts.emplace(entry->key, static_cast<const char *>(entry->value));
  return texts;
}

bool same_fields(ListInfo *a, ListInfo *b) {
  Ordering *x = listinfo_getOrder(a), *y = listinfo_getOrder(b);
  return listinfo_getLimit(a) == listinfo_getLimit(b) &&
         listinfo_getOffset(a) == listinfo_getOffset(b) &&
         ordering_getAsc(x) == ordering_getAsc(y) &&
         strcmp(ordering_getOrder_by(x), ordering_getOrder_by(y)) == 0 &&
         parameters(listinfo_getSearch_parameters(a)) ==
             parameters(listinfo_getSearch_parameters(b));
}

struct records {
  ListInfo *read = nullptr, *written = nullptr, *reread = nullptr,
           *rewritten = nullptr, *copy = nullptr;
  ~records() {
    for (ListInfo *info : {read, written, reread, rewritten, copy})
      if (info != nullptr)
        ListInfo_deleter(info);
  }
};

void round_trip(const Json::Value &in) {
  records r;
  r.read = static_cast<ListInfo *>(ListInfo_deserialize(in));
  if (r.read->presence_mask != 15)
    abort();

  /* A copy keeps every field but, like the record read, writes neither
   * the order nor the parameters. */
  ListInfo_copier(reinterpret_cast<void **>(&r.copy), r.read);
  Json::Value plain, plain_copy;
  ListInfo_serialize(r.read, plain);
  ListInfo_serialize(r.copy, plain_copy);
  if (!(plain == plain_copy) || !same_fields(r.read, r.copy) ||
      plain["__properties__"].isMember("order"))
    abort();

  r.written = writable_copy(r.read);
  Json::Value first, second;
  ListInfo_serialize(r.written, first);
  r.reread = static_cast<ListInfo *>(ListInfo_deserialize(first));
  r.rewritten = writable_copy(r.reread);
  ListInfo_serialize(r.rewritten, second);
  if (!(first == second) || !same_fields(r.read, r.reread))
    abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Json::Value root;
  if (!parse_json(data, size, root))
    return 0;
  try {
    round_trip(root);
  } catch (const Json::Exception &) {
  }
  return 0;
}
