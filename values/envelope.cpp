#include <cstdlib>
#include <cstring>

#include "velmora/values.h"

void safe_free(void **slot) {
  if (*slot != nullptr) {
    free(*slot);
    *slot = nullptr;
  }
}

char *string_copier(char **slot, const char *text) {
  *slot = strdup(text);
  return *slot;
}
