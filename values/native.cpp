/* The element-only types: plain texts ("Unicode"), Integer and Boolean. */
#include <cstdlib>
#include <cstring>

#include "velmora/values.h"

void *string_deserialize(const Json::Value &in) {
  return strdup(in.asString().c_str());
}

void string_deleter(void *text) {
  free(text);
}

void Integer_copier(void **slot, void *value) {
  Integer *copy = static_cast<Integer *>(malloc(sizeof(Integer)));
  *copy = *static_cast<Integer *>(value);
  *slot = copy;
}

void Integer_deleter(void *value) {
  free(value);
}

void Boolean_copier(void **slot, void *value) {
  Boolean *copy = static_cast<Boolean *>(malloc(sizeof(Boolean)));
  *copy = *static_cast<Boolean *>(value);
  *slot = copy;
}

void Boolean_deleter(void *value) {
  free(value);
}
