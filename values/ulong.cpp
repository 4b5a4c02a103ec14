/* ULong: an unsigned 64-bit integer, typed "Long" on the wire. */
#include <cstdlib>

#include "values_internal.h"
#include "velmora/detail/numbers.h"
#include "velmora/values.h"

Json::Value *ULong_serialize(void *value, Json::Value &out) {
  if (value == nullptr)
    return velmora::envelope_write(out, "Long", Json::Value());
  return velmora::envelope_write(
      out, "Long", velmora::number_text(static_cast<ULong *>(value)->value));
}

void *ULong_deserialize(const Json::Value &in) {
  std::string storage;
  /* Base 0: "0x" hexadecimal and leading-0 octal are read as such. */
  ULong cell = {velmora::detail::ulong_text(
      velmora::member_text(velmora::envelope_value(in), storage))};
  return velmora::cell_dup(&cell, sizeof cell);
}

void ULong_copier(void **slot, void *value) {
  *slot = velmora::cell_dup(value, sizeof(ULong));
}

void ULong_deleter(void *value) {
  free(value);
}
