/* Double: carried as "%f" text in the process's numeric locale. */
#include <cstdlib>

#include "scalar.h"
#include "velmora/values.h"

void *Double_new(void) {
  Double cell = {0.0};
  return cell_dup(&cell, sizeof cell);
}

Json::Value *Double_serialize(void *value, Json::Value &out) {
  if (value == nullptr)
    return envelope_write(out, "Double", Json::Value());
  return envelope_write(out, "Double",
                        number_text(static_cast<Double *>(value)->value));
}

void *Double_deserialize(const Json::Value &in) {
  std::string storage;
  Double cell = {strtod(member_text(envelope_value(in), storage), nullptr)};
  return cell_dup(&cell, sizeof cell);
}

void Double_copier(void **slot, void *value) {
  *slot = cell_dup(value, sizeof(Double));
}

void Double_deleter(void *value) {
  free(value);
}
