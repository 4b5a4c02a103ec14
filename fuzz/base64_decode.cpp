/*
 * Base64 decoding of arbitrary text: the decoder stays inside the text and
 * its own buffer, gives the bytes of the valid prefix, and they encode back
 * to a text that decodes to them again. Every path the CPU has gives the
 * scalar path's bytes and text.
 */
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

#include "../digest/digest_internal.h"
#include "velmora/digest.h"

namespace {

/* The bytes `text` decodes to and their text, which decodes to them again. */
std::pair<std::string, std::string> round_trip(const std::string &text) {
  char *bytes = nullptr, *again = nullptr;
  int length = -1, again_length = -1;
  base64_decode(text, &bytes, length);
  std::pair<std::string, std::string> result(
      std::string(bytes, size_t(length)),
      base64_encode(bytes, unsigned(length)));
  base64_decode(result.second, &again, again_length);
  if (again_length != length || memcmp(again, bytes, size_t(length)) != 0)
    abort();
  free(again);
  free(bytes);
  return result;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  using velmora::Base64Path;
  const std::string text(reinterpret_cast<const char *>(data), size);
  const size_t valid = std::min(
      text.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuv"
                             "wxyz0123456789+/"),
      size);
  velmora::base64_force(Base64Path::scalar);
  const auto scalar = round_trip(text);
  if (scalar.first.size() !=
      valid / 4 * 3 + (valid % 4 > 1 ? valid % 4 - 1 : 0))
    abort();
  for (const auto path : {Base64Path::avx2, Base64Path::avx512})
    if (velmora::base64_force(path) && round_trip(text) != scalar)
      abort();
  return 0;
}
