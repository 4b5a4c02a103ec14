/* SHA-1 running context: buffering, exact length counting and padding. The
 * block compression is picked once per process from what the CPU offers. */
#include <atomic>
#include <cstdlib>
#include <cstring>

#include "digest_internal.h"
#include "velmora/digest.h"

using velmora::sha1_compress_portable;
using velmora::sha1_compress_shani;

namespace {

using compress_fn = void (*)(uint32_t *, const uint8_t *, size_t);

constexpr uint32_t kInitialHash[5] = {0x67452301, 0xEFCDAB89, 0x98BADCFE,
                                      0x10325476, 0xC3D2E1F0};

compress_fn best_compress() {
  return velmora::cpu_features().sha ? sha1_compress_shani
                                     : sha1_compress_portable;
}

void compress_first_time(uint32_t *state, const uint8_t *blocks, size_t count);

/* Starts at a resolver so that no load-time initialiser is needed; the
 * first compression replaces it with the routine it picks. */
std::atomic<compress_fn> selected_compress{compress_first_time};

void compress_first_time(uint32_t *state, const uint8_t *blocks, size_t count) {
  compress_fn chosen = best_compress();
  selected_compress.store(chosen, std::memory_order_relaxed);
  chosen(state, blocks, count);
}

/* Whole-word stores: the compression reads the block back in wide loads,
 * which byte stores would keep waiting. */
void store_be32(uint8_t *p, uint32_t v) {
  v = __builtin_bswap32(v);
  memcpy(p, &v, sizeof v);
}

void store_be64(uint8_t *p, uint64_t v) {
  v = __builtin_bswap64(v);
  memcpy(p, &v, sizeof v);
}

void start(sha1_context_s *context) {
  memcpy(context->intermediate_hash, kInitialHash, sizeof kInitialHash);
  context->length_low = 0;
  context->length_high = 0;
  context->block_index = 0;
}

/* False, having read nothing, when the bytes would take the message to 2^64
 * bits: the byte that reaches the limit is refused, and every byte before it
 * would be lost with the released context anyway. */
bool feed(sha1_context_s *context, const uint8_t *data, uint64_t length) {
  uint64_t bits = uint64_t(context->length_high) << 32 | context->length_low;
  if (length > (~bits >> 3))
    return false;
  bits += length << 3;
  context->length_low = uint32_t(bits);
  context->length_high = uint32_t(bits >> 32);

  compress_fn compress = selected_compress.load(std::memory_order_relaxed);
  size_t held = size_t(context->block_index);
  if (held > 0) {
    size_t take = length < 64 - held ? size_t(length) : 64 - held;
    memcpy(context->message_block + held, data, take);
    held += take;
    data += take;
    length -= take;
    if (held < 64) {
      context->block_index = int16_t(held);
      return true;
    }
    compress(context->intermediate_hash, context->message_block, 1);
  }
  /* Whole blocks go straight from the caller's buffer. */
  if (length >= 64) {
    compress(context->intermediate_hash, data, size_t(length / 64));
    data += length & ~uint64_t(63);
    length &= 63;
  }
  memcpy(context->message_block, data, size_t(length));
  context->block_index = int16_t(length);
  return true;
}

void finish(sha1_context_s *context, uint8_t digest[20]) {
  compress_fn compress = selected_compress.load(std::memory_order_relaxed);
  uint8_t *block = context->message_block;
  size_t index = size_t(context->block_index);
  block[index++] = 0x80;
  if (index > 56) {
    memset(block + index, 0, 64 - index);
    compress(context->intermediate_hash, block, 1);
    index = 0;
  }
  memset(block + index, 0, 56 - index);
  store_be64(block + 56,
             uint64_t(context->length_high) << 32 | context->length_low);
  compress(context->intermediate_hash, block, 1);
  for (size_t i = 0; i < 5; ++i)
    store_be32(digest + 4 * i, context->intermediate_hash[i]);
}

/* Messages are often passwords and keys: leave none of them in freed or
 * stack memory. */
void wipe(void *p, size_t size) {
  explicit_bzero(p, size);
}

void release(sha1_context_s *context) {
  wipe(context, sizeof *context);
  free(context);
}

} // namespace

namespace velmora {

void sha1_force_portable(bool force) {
  selected_compress.store(force ? sha1_compress_portable : best_compress(),
                          std::memory_order_relaxed);
}

} // namespace velmora

sha1_context_s *sha1_open(void) {
  sha1_context_s *context =
      static_cast<sha1_context_s *>(malloc(sizeof(sha1_context_s)));
  if (context != nullptr)
    start(context);
  return context;
}

sha1_context_s *sha1_add(sha1_context_s *context, const void *data,
                         uint64_t length) {
  if (length == 0)
    return context;
  if (!feed(context, static_cast<const uint8_t *>(data), length)) {
    release(context);
    return nullptr;
  }
  return context;
}

uint8_t *sha1_close(sha1_context_s *context) {
  uint8_t *digest = static_cast<uint8_t *>(malloc(20));
  if (digest != nullptr)
    finish(context, digest);
  release(context);
  return digest;
}

uint8_t *sha1_hash(const void *data, uint64_t length) {
  sha1_context_s *context = sha1_open();
  if (context != nullptr)
    context = sha1_add(context, data, length);
  return context != nullptr ? sha1_close(context) : nullptr;
}

int sha1_dump(FILE *stream, const uint8_t *digest) {
  char text[41];
  toHexString(reinterpret_cast<const char *>(digest), text);
  fwrite(text, 1, 40, stream);
  return fputc('\n', stream);
}
