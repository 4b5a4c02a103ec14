/* Long: a signed 64-bit integer carried as decimal text. */
#include <cstdlib>

#include "values_internal.h"
#include "velmora/detail/numbers.h"
#include "velmora/values.h"

void *Long_new() {
  Long cell = {0};
  return velmora::cell_dup(&cell, sizeof cell);
}

int64_t Long_getValue(void *value) {
  return value != nullptr ? static_cast<Long *>(value)->value : 0;
}

void Long_setValue(void *value, int64_t number) {
  if (value != nullptr)
    static_cast<Long *>(value)->value = number;
}

Json::Value *Long_serialize(void *value, Json::Value &out) {
  if (value == nullptr)
    return velmora::envelope_write(out, "Long", Json::Value());
  return velmora::envelope_write(
      out, "Long", velmora::number_text(static_cast<Long *>(value)->value));
}

void *Long_deserialize(const Json::Value &in) {
  std::string storage;
  Long cell = {velmora::detail::long_text(
      velmora::member_text(velmora::envelope_value(in), storage))};
  return velmora::cell_dup(&cell, sizeof cell);
}

void Long_copier(void **slot, void *value) {
  *slot = velmora::cell_dup(value, sizeof(Long));
}

void Long_deleter(void *value) {
  free(value);
}
