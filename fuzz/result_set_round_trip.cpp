/*
 * A ResultSet read from arbitrary JSON, written, read again and written
 * again: the two trees (elements, counts and totals) must be equal. The
 * first input byte picks the element type; the rest is the JSON text.
 */
#include <cstdlib>

#include "../tests/support/value_types.h"

namespace {

/* What a page of type `t` writes after reading `in`. */
Json::Value reread(const value_type &t, const Json::Value &in) {
  std::unique_ptr<void, value_deleter> page(
      result_set_new(t.name, t.release, t.read, t.write, t.copy),
      result_set_del);
  result_set_deserialize(static_cast<result_set_s *>(page.get()), in);
  Json::Value out;
  return *result_set_serialize(page.get(), out);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Json::Value in;
  const char *text = reinterpret_cast<const char *>(data);
  if (size == 0 || !parse_json(std::string(text + 1, size - 1), in))
    return 0;
  const value_type &type = value_types[data[0] % ALL_TYPES];
  try {
    const Json::Value first = reread(type, in);
    if (first != reread(type, first))
      abort();
  } catch (const Json::Exception &) {
  }
  return 0;
}
