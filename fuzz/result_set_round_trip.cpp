/*
 * A ResultSet read from arbitrary JSON, written, read again and written
 * again: equal trees, counts and totals. The first input byte picks the
 * element type; the rest is the JSON text.
 */
#include <cstdlib>

#include "../tests/support/value_types.h"

namespace {

using held = std::unique_ptr<void, value_deleter>;

held read_page(const value_type &t, const Json::Value &in, Json::Value &out) {
  held page(result_set_new(t.name, t.release, t.read, t.write, t.copy),
            result_set_del);
  result_set_deserialize(static_cast<result_set_s *>(page.get()), in);
  result_set_serialize(page.get(), out);
  return page;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Json::Value in, first, second;
  if (size == 0 ||
      !parse_json(
          std::string(reinterpret_cast<const char *>(data) + 1, size - 1), in))
    return 0;
  const value_type &type = value_types[data[0] % ALL_TYPES];
  try {
    held read = read_page(type, in, first),
         reread = read_page(type, first, second);
    auto *a = static_cast<result_set_s *>(read.get());
    auto *b = static_cast<result_set_s *>(reread.get());
    if (first != second ||
        result_get_nb_elements(a) != result_get_nb_elements(b) ||
        result_set_get_total_items(a) != result_set_get_total_items(b))
      abort();
  } catch (const Json::Exception &) {
  }
  return 0;
}
