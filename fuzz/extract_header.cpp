/*
 * Header lookup on arbitrary text, against a plain reference. The first
 * input byte gives the length of the header name that follows it; the rest
 * is the header text. Both are read as C strings: up to their first NUL.
 */
#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "velmora/transport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0)
    return 0;
  const char *rest = reinterpret_cast<const char *>(data + 1);
  const std::string name(rest, std::min<size_t>(data[0] % 24, size - 1));
  std::string headers(rest + name.size(), size - 1 - name.size()), value;
  const std::string hay = headers.substr(0, headers.find('\0'));
  const std::string needle = name.substr(0, name.find('\0'));
  const size_t at =
      std::search(hay.begin(), hay.end(), needle.begin(), needle.end(),
                  [](unsigned char a, unsigned char b) {
                    return tolower(a) == tolower(b);
                  }) -
      hay.begin();
  const size_t from = at + needle.size(), end = hay.find('\n', from);
  const int code = at == hay.size() && !needle.empty() ? -1
                   : end == std::string::npos          ? -2
                                                       : 0;
  if (extract_header(&headers, name, value) != code ||
      value != (code == 0 ? hay.substr(from, end - from) : ""))
    abort();
  return 0;
}
