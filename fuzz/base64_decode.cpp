/*
 * Base64 decoding of arbitrary text. Besides staying inside the text and
 * its own buffer, the decoder must deliver exactly the bytes of the valid
 * prefix, and re-encoding them must decode to the same bytes.
 */
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "velmora/digest.h"

namespace {

bool in_alphabet(unsigned char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
         (c >= '0' && c <= '9') || c == '+' || c == '/';
}

/* Bytes that the characters before the first "=" or stray character give. */
int expected_length(const std::string &text) {
  size_t accepted = 0;
  while (accepted < text.size() &&
         in_alphabet(static_cast<unsigned char>(text[accepted])))
    ++accepted;
  const size_t tail = accepted % 4;
  return static_cast<int>(accepted / 4 * 3 + (tail > 1 ? tail - 1 : 0));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string text(reinterpret_cast<const char *>(data), size);
  char *bytes = nullptr;
  int length = -1;
  base64_decode(text, &bytes, length);
  if (length != expected_length(text) || (length > 0 && bytes == nullptr))
    abort();

  const std::string encoded =
      base64_encode(bytes, static_cast<unsigned int>(length));
  if (encoded.size() != (static_cast<size_t>(length) + 2) / 3 * 4)
    abort();
  char *again = nullptr;
  int again_length = -1;
  base64_decode(encoded, &again, again_length);
  if (again_length != length || memcmp(again, bytes, length) != 0)
    abort();
  free(again);
  free(bytes);
  return 0;
}
