#include "heap_count.h"

#include <atomic>
#include <cstddef>
#include <malloc.h>

extern "C" {
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *block, size_t size);
void *__libc_memalign(size_t alignment, size_t size);
void __libc_free(void *block);
}

namespace {

std::atomic<bool> counting{false};
std::atomic<long> heap_now{0}, heap_peak{0};

void *noted(void *block, long before) {
  if (!counting.load(std::memory_order_relaxed))
    return block;
  long now = heap_now +=
      long(block == nullptr ? 0 : malloc_usable_size(block)) - before;
  long peak = heap_peak.load();
  while (now > peak && !heap_peak.compare_exchange_weak(peak, now)) {
  }
  return block;
}

long size_of(void *block) {
  return block == nullptr ? 0 : long(malloc_usable_size(block));
}

} // namespace

extern "C" void *malloc(size_t size) {
  return noted(__libc_malloc(size), 0);
}
extern "C" void *calloc(size_t count, size_t size) {
  return noted(__libc_calloc(count, size), 0);
}
extern "C" void *realloc(void *block, size_t size) {
  long before = counting.load(std::memory_order_relaxed) ? size_of(block) : 0;
  void *moved = __libc_realloc(block, size);
  return moved == nullptr && size != 0 ? moved : noted(moved, before);
}
extern "C" void *memalign(size_t alignment, size_t size) {
  return noted(__libc_memalign(alignment, size), 0);
}
extern "C" void *aligned_alloc(size_t alignment, size_t size) {
  return memalign(alignment, size);
}
extern "C" int posix_memalign(void **block, size_t alignment, size_t size) {
  *block = memalign(alignment, size);
  return *block == nullptr ? 12 : 0;
}
extern "C" void free(void *block) {
  if (counting.load(std::memory_order_relaxed))
    noted(nullptr, size_of(block));
  __libc_free(block);
}

void heap_count_start() {
  heap_now = 0, heap_peak = 0;
  counting = true;
}

void heap_count_stop() {
  counting = false;
}

long heap_count_now() {
  return heap_now.load();
}

long heap_count_peak() {
  return heap_peak.load();
}
