/*
 * Base64 decoding of arbitrary text: the decoder stays inside the text and
 * its own buffer, gives the bytes of the valid prefix, and they encode back
 * to a text that decodes to them again.
 */
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "velmora/digest.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string text(reinterpret_cast<const char *>(data), size);
  const size_t valid = std::min(
      text.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuv"
                             "wxyz0123456789+/"),
      size);
  char *bytes = nullptr, *again = nullptr;
  int length = -1, again_length = -1;
  base64_decode(text, &bytes, length);
  base64_decode(base64_encode(bytes, unsigned(length)), &again, again_length);
  if (size_t(length) != valid / 4 * 3 + (valid % 4 > 1 ? valid % 4 - 1 : 0) ||
      again_length != length || memcmp(again, bytes, size_t(length)) != 0)
    abort();
  free(again);
  free(bytes);
  return 0;
}
