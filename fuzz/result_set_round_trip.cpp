/*
 * A ResultSet read from arbitrary JSON, written, read again and written
 * again: the two trees must be equal. The first input byte picks the
 * element type; the rest is the JSON text.
 */
#include <cstdlib>

#include "json_input.h"

namespace {

struct page {
  result_set_s *set;
  explicit page(const operation_set &type)
      : set(result_set_new(type.sub_type, type.deleter, type.deserializer,
                           type.serializer, type.copier)) {}
  ~page() {
    result_set_del(set);
  }
};

void round_trip(const operation_set &type, const Json::Value &in) {
  page read(type), reread(type);
  result_set_deserialize(read.set, in);
  Json::Value first, second;
  result_set_serialize(read.set, first);
  result_set_deserialize(reread.set, first);
  result_set_serialize(reread.set, second);
  if (!(first == second) ||
      result_get_nb_elements(read.set) != result_get_nb_elements(reread.set) ||
      result_set_get_total_items(read.set) !=
          result_set_get_total_items(reread.set))
    abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0)
    return 0;
  const size_t types = sizeof element_types / sizeof element_types[0];
  const operation_set &type = element_types[data[0] % types];
  Json::Value root;
  if (!parse_json(data + 1, size - 1, root))
    return 0;
  try {
    round_trip(type, root);
  } catch (const Json::Exception &) {
  }
  return 0;
}
