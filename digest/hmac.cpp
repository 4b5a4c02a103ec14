/* HMAC-SHA1 and the hex renderings of digests. */
#include <cstdlib>
#include <cstring>

#include "velmora/digest.h"

namespace {

constexpr int kBlockSize = 64;
constexpr int kDigestSize = 20;
constexpr char kHexDigits[] = "0123456789abcdef";

/* SHA-1 of one pad block followed by `rest`; null when a context or the
 * digest cannot be allocated (sha1_add has then released the context). */
uint8_t *digest_after_pad(const uint8_t pad[kBlockSize], const void *rest,
                          uint64_t rest_length) {
  sha1_context_s *context = sha1_open();
  if (context == nullptr)
    return nullptr;
  context = sha1_add(context, pad, kBlockSize);
  if (context != nullptr)
    context = sha1_add(context, rest, rest_length);
  return context != nullptr ? sha1_close(context) : nullptr;
}

/* Both pads from the key laid out in a zeroed block: fixed 64-byte loops
 * the compiler turns into a few vector operations. */
void form_pads(uint8_t inner[kBlockSize], uint8_t outer[kBlockSize],
               const uint8_t *key, int key_length) {
  uint8_t block[kBlockSize] = {};
  memcpy(block, key, size_t(key_length));
  for (int i = 0; i < kBlockSize; ++i) {
    inner[i] = block[i] ^ 0x36;
    outer[i] = block[i] ^ 0x5C;
  }
  explicit_bzero(block, sizeof block);
}

/* What the caller gets when an allocation fails: no status, so no stale
 * or partial bytes either. */
void fill_zeros(char *out, int count) {
  if (count > 0)
    memset(out, 0, size_t(count));
}

} // namespace

void hmac_sha(const char *key, int key_length, const char *data,
              int data_length, char *out, int out_length) {
  const int wanted = out_length < kDigestSize ? out_length : kDigestSize;
  const uint8_t *key_bytes = reinterpret_cast<const uint8_t *>(key);
  uint8_t *hashed_key = nullptr;
  if (key_length > kBlockSize) {
    hashed_key = sha1_hash(key, uint64_t(key_length));
    if (hashed_key == nullptr) {
      fill_zeros(out, wanted);
      return;
    }
    key_bytes = hashed_key;
    key_length = kDigestSize;
  }

  uint8_t pads[2][kBlockSize];
  form_pads(pads[0], pads[1], key_bytes, key_length);
  if (hashed_key != nullptr) {
    explicit_bzero(hashed_key, kDigestSize);
    free(hashed_key);
  }
  /* A negative data length converts to a size past the SHA-1 limit: the
   * inner digest fails and the output is zeros rather than a wild read. */
  uint8_t *inner =
      digest_after_pad(pads[0], data, uint64_t(int64_t(data_length)));
  uint8_t *outer = inner != nullptr
                       ? digest_after_pad(pads[1], inner, kDigestSize)
                       : nullptr;
  explicit_bzero(pads, sizeof pads);

  if (outer != nullptr)
    truncate(reinterpret_cast<char *>(outer), out, wanted);
  else
    fill_zeros(out, wanted);
  free(outer);
  free(inner);
}

void truncate(char *source, char *destination, int count) {
  /* Front to back, one byte at a time, also when the buffers overlap. */
  for (int i = 0; i < count; ++i)
    destination[i] = source[i];
}

int pr_sha(FILE *stream, char *bytes, int count) {
  fputs("0x", stream);
  for (int i = 0; i < count; ++i) {
    const unsigned char byte = static_cast<unsigned char>(bytes[i]);
    fputc(kHexDigits[byte >> 4], stream);
    fputc(kHexDigits[byte & 15], stream);
  }
  return fputc('0', stream);
}

void toHexString(const char *digest, char *text) {
  for (size_t i = 0; i < kDigestSize; ++i) {
    const unsigned char byte = static_cast<unsigned char>(digest[i]);
    text[2 * i] = kHexDigits[byte >> 4];
    text[2 * i + 1] = kHexDigits[byte & 15];
  }
  text[2 * size_t{kDigestSize}] = '\0';
}
