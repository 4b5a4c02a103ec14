/* Wire names put into generated code as they stand: any bytes, escaped. */
#ifndef VELMORA_GEN_ESCAPES_H
#define VELMORA_GEN_ESCAPES_H

#include <string>

namespace velmora_gen {

/* `text` as a C string literal: quotes, backslashes and every byte outside
 * printable ASCII escaped, so any wire name compiles as it stands. */
std::string c_literal(const std::string &text);

/* `text` quoted for a comment: JSON escapes, and no comment end. */
std::string comment_quoted(const std::string &text);

/* True when `text` has the byte structure of UTF-8. */
bool utf8(const std::string &text);

} // namespace velmora_gen

#endif
