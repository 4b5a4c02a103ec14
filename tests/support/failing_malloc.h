/* Allocation failures made on demand. A test program that links
 * failing_malloc.cpp with --wrap for malloc, calloc, realloc and strdup
 * sends every such call in its own objects (the library's archive
 * included) through here. */
#ifndef VELMORA_TEST_FAILING_MALLOC_H
#define VELMORA_TEST_FAILING_MALLOC_H

namespace failing_malloc {
extern int until_failure; /* the call that brings it to zero fails */
extern int seen;
} // namespace failing_malloc

/* Runs `body` with the `n`th allocation failing (0: none); returns how many
 * allocations it made. */
template <typename Body> int with_failing_malloc(int n, Body body) {
  failing_malloc::seen = 0;
  failing_malloc::until_failure = n;
  body();
  failing_malloc::until_failure = 0;
  return failing_malloc::seen;
}

#endif
