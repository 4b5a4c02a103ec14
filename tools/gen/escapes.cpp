#include "escapes.h"

#include <cstdio>

namespace velmora_gen {

namespace {

void append_escape(std::string *out, unsigned char c, const char *format) {
  char text[8];
  snprintf(text, sizeof text, format, c);
  *out += text;
}

} // namespace

std::string c_literal(const std::string &text) {
  std::string out = "\"";
  for (char c : text) {
    auto byte = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\')
      out += std::string("\\") + c;
    else if (byte >= ' ' && byte <= '~')
      out += c;
    else
      append_escape(&out, byte, "\\%03o"); /* octal stops after 3 digits */
  }
  return out + "\"";
}

std::string comment_quoted(const std::string &text) {
  std::string out = "\"";
  for (size_t i = 0; i < text.size(); i++) {
    auto byte = static_cast<unsigned char>(text[i]);
    if (text[i] == '"' || text[i] == '\\')
      out += std::string("\\") + text[i];
    else if (byte < ' ' || byte == 0x7f)
      append_escape(&out, byte, "\\u%04x");
    else if (text[i] == '/' && i > 0 && text[i - 1] == '*')
      out += "\\/";
    else
      out += text[i];
  }
  return out + "\"";
}

bool utf8(const std::string &text) {
  for (size_t i = 0; i < text.size();) {
    auto byte = static_cast<unsigned char>(text[i]);
    size_t extra = byte < 0x80 ? 0 : byte >= 0xf0 ? 3 : byte >= 0xe0 ? 2 : 1;
    if ((byte >= 0x80 && byte < 0xc2) || byte > 0xf4 ||
        i + extra + 1 > text.size())
      return false;
    for (size_t k = 1; k <= extra; k++)
      if ((static_cast<unsigned char>(text[i + k]) & 0xc0) != 0x80)
        return false;
    i += extra + 1;
  }
  return true;
}

} // namespace velmora_gen
