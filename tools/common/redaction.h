/* The credentials a recording leaves out: header lines and query
 * parameters of a name known to carry one, their values replaced by a
 * marker. */
#ifndef VELMORA_TOOLS_REDACTION_H
#define VELMORA_TOOLS_REDACTION_H

#include <string>
#include <vector>

namespace velmora_tools {

/* What a redacted value becomes. */
extern const char *const removed;

/* The names redacted by default, comma-separated, as --help lists them. */
std::string default_redacted_names();

/* True when `name` (of a header line or a query parameter; case does not
 * matter) is one of the defaults or of `extra`. */
bool redacted_name(const std::string &name,
                   const std::vector<std::string> &extra);

/* `path` with the value of each redacted query parameter replaced by the
 * marker, the rest byte for byte. */
std::string redacted_path(const std::string &path,
                          const std::vector<std::string> &extra);

} // namespace velmora_tools

#endif
