/* The JSON readers the tools share, one per strictness that a use needs,
 * and the reading of a whole file. */
#ifndef VELMORA_TOOLS_JSON_TEXT_H
#define VELMORA_TOOLS_JSON_TEXT_H

#include <string>
#include <string_view>

#include <json/value.h>

namespace velmora_tools {

enum class Strictness {
  /* jsoncpp's defaults (comments, a byte-order mark, a key twice): files
   * that users write by hand */
  lenient,
  /* strict JSON with an object or an array at the root: request bodies */
  strict,
  /* strict JSON of any root, without a byte-order mark: a body kept as
   * JSON means what its text meant and can stand in a recording as it is */
  strict_any_root,
};

/* False when `text` is not wholly JSON of that strictness, with jsoncpp's
 * reason, on one line, in `why` when given. Input never makes it throw. */
bool parse_json(std::string_view text, Strictness strictness,
                Json::Value *value, std::string *why = nullptr);

/* The value as JSON text on one line, without spaces. */
std::string one_line(const Json::Value &value);

} // namespace velmora_tools

#endif
