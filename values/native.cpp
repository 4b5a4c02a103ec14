/* The element-only types: plain texts ("Unicode"), Integer and Boolean. */
#include <cstdlib>
#include <cstring>

#include "values_internal.h"
#include "velmora/values.h"

void *string_deserialize(const Json::Value &in) {
  std::string storage;
  return strdup(velmora::member_text(in, storage));
}

void string_deleter(void *text) {
  free(text);
}

void Integer_copier(void **slot, void *value) {
  *slot = velmora::cell_dup(value, sizeof(Integer));
}

void Integer_deleter(void *value) {
  free(value);
}

void Boolean_copier(void **slot, void *value) {
  *slot = velmora::cell_dup(value, sizeof(Boolean));
}

void Boolean_deleter(void *value) {
  free(value);
}
