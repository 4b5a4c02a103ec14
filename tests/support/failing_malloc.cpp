#include "failing_malloc.h"

#include <cstdlib>
#include <cstring>

namespace failing_malloc {
int until_failure = 0;
int seen = 0;
} // namespace failing_malloc

namespace {

bool fails_now() {
  ++failing_malloc::seen;
  return failing_malloc::until_failure > 0 &&
         --failing_malloc::until_failure == 0;
}

} // namespace

extern "C" void *__real_malloc(size_t size);

extern "C" void *__wrap_malloc(size_t size) {
  return fails_now() ? nullptr : __real_malloc(size);
}

extern "C" void *__real_calloc(size_t count, size_t size);

extern "C" void *__wrap_calloc(size_t count, size_t size) {
  return fails_now() ? nullptr : __real_calloc(count, size);
}

/* A failing realloc leaves the old block where it was, as the real one
 * does. */
extern "C" void *__real_realloc(void *block, size_t size);

extern "C" void *__wrap_realloc(void *block, size_t size) {
  return fails_now() ? nullptr : __real_realloc(block, size);
}

/* The C library's own strdup calls its malloc directly, past the wrap. */
extern "C" char *__real_strdup(const char *text);

extern "C" char *__wrap_strdup(const char *text) {
  return fails_now() ? nullptr : __real_strdup(text);
}
