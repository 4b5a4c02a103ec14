/*
 * Header lookup and blank stripping on arbitrary header text. The first
 * input byte gives the length of the header name that follows it; the rest
 * is the header text. Results are checked against a plain reference.
 */
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "velmora/transport.h"

namespace {

/* The C-string view the lookup works on: the text up to its first NUL. */
std::string c_view(const std::string &text) {
  return text.substr(0, text.find('\0'));
}

size_t find_ignoring_case(const std::string &haystack,
                          const std::string &needle) {
  if (needle.size() > haystack.size())
    return std::string::npos;
  for (size_t at = 0; at + needle.size() <= haystack.size(); ++at) {
    size_t i = 0;
    while (i < needle.size() &&
           tolower(static_cast<unsigned char>(haystack[at + i])) ==
               tolower(static_cast<unsigned char>(needle[i])))
      ++i;
    if (i == needle.size())
      return at;
  }
  return std::string::npos;
}

void check_lookup(std::string &headers, const std::string &name) {
  const std::string before = headers;
  const std::string sentinel = "\x01unchanged";
  std::string value = sentinel;
  const int result = extract_header(&headers, name, value);
  if (headers != before)
    abort();

  const std::string hay = c_view(headers);
  const std::string needle = c_view(name);
  const size_t at = find_ignoring_case(hay, needle);
  if (at == std::string::npos) {
    if (result != -1 || value != sentinel)
      abort();
    return;
  }
  /* The line end is looked for after the name: a name holding a line feed
   * must not give a value that ends before it starts. */
  const size_t from = at + needle.size();
  const size_t line_end = hay.find('\n', from);
  if (line_end == std::string::npos) {
    if (result != -2 || value != sentinel)
      abort();
    return;
  }
  const std::string expected = hay.substr(from, line_end - from);
  if (result != 0 || value != expected)
    abort();
}

void check_strip(std::string &text) {
  const std::string before = text;
  std::string *stripped = stripLeadingAndTrailingBlanks(text);
  if (text != before)
    abort();
  if (text.empty()) {
    if (stripped != nullptr)
      abort();
    return;
  }
  const size_t first = text.find_first_not_of(' ');
  if (first == std::string::npos) {
    /* Only spaces: null or an empty text are both reasonable. */
    if (stripped != nullptr && !stripped->empty())
      abort();
  } else {
    const size_t last = text.find_last_not_of(' ');
    if (stripped == nullptr ||
        *stripped != text.substr(first, last - first + 1))
      abort();
  }
  delete stripped;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0)
    return 0;
  const size_t name_length = data[0] % 24 < size - 1 ? data[0] % 24 : size - 1;
  const char *rest = reinterpret_cast<const char *>(data + 1);
  const std::string name(rest, name_length);
  std::string headers(rest + name_length, size - 1 - name_length);

  check_lookup(headers, name);
  std::string date_value;
  if (extract_header(&headers, "Date:", date_value) == 0)
    check_strip(date_value);
  check_strip(headers);
  return 0;
}
