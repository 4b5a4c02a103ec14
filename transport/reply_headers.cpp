#include <cstdio>
#include <cstring>
#include <iostream>

#include "velmora/transport.h"

namespace {

char lower(char c) {
  return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c;
}

/* Offset of the first case-blind occurrence of `needle` in `hay`, or npos.
 * Both end at their first NUL, as C strings do. */
size_t find_ignoring_case(const char *hay, size_t hay_length,
                          const char *needle, size_t needle_length) {
  if (needle_length == 0)
    return 0;
  if (needle_length > hay_length)
    return std::string::npos;
  const char first = lower(needle[0]);
  for (size_t at = 0; at + needle_length <= hay_length; ++at) {
    if (lower(hay[at]) != first)
      continue;
    size_t i = 1;
    while (i < needle_length && lower(hay[at + i]) == lower(needle[i]))
      ++i;
    if (i == needle_length)
      return at;
  }
  return std::string::npos;
}

} // namespace

int extract_header(std::string *headers, const std::string &name,
                   std::string &value) {
  if (headers == nullptr)
    return -1;
  /* The text and the name are read as C strings: up to their first NUL. */
  const char *text = headers->c_str();
  const size_t text_length = strlen(text);
  const size_t name_length = strlen(name.c_str());
  size_t at = find_ignoring_case(text, text_length, name.c_str(), name_length);
  if (at == std::string::npos)
    return -1;
  /* Searching from the name's end equals searching from its start unless
   * the name itself holds a line feed; then it keeps the value in bounds. */
  size_t start = at + name_length;
  const void *line_end = memchr(text + start, '\n', text_length - start);
  if (line_end == nullptr)
    return -2;
  value.assign(text + start,
               static_cast<const char *>(line_end) - (text + start));
  return 0;
}

std::string *stripLeadingAndTrailingBlanks(std::string &text) {
  if (text.empty())
    return nullptr;
  size_t first = text.find_first_not_of(' ');
  if (first == std::string::npos)
    return new std::string();
  size_t last = text.find_last_not_of(' ');
  return new std::string(text, first, last - first + 1);
}

size_t reader(char *, size_t, size_t, void *) {
  fputs("READING source info", stdout);
  return 0;
}

void usage() {
  std::cout << "curltest: \n" << std::endl;
  std::cout << "  Usage:  curltest url\n" << std::endl;
}
