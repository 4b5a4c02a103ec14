/* Double: carried as "%f" text in the process's numeric locale. */
#include <cstdlib>

#include "values_internal.h"
#include "velmora/detail/numbers.h"
#include "velmora/values.h"

void *Double_new(void) {
  Double cell = {0.0};
  return velmora::cell_dup(&cell, sizeof cell);
}

Json::Value *Double_serialize(void *value, Json::Value &out) {
  if (value == nullptr)
    return velmora::envelope_write(out, "Double", Json::Value());
  return velmora::envelope_write(
      out, "Double", velmora::number_text(static_cast<Double *>(value)->value));
}

void *Double_deserialize(const Json::Value &in) {
  std::string storage;
  Double cell = {velmora::detail::double_text(
      velmora::member_text(velmora::envelope_value(in), storage))};
  return velmora::cell_dup(&cell, sizeof cell);
}

void Double_copier(void **slot, void *value) {
  *slot = velmora::cell_dup(value, sizeof(Double));
}

void Double_deleter(void *value) {
  free(value);
}
