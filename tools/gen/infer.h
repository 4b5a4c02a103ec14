/* A schema inferred from replies that hold typed envelopes, and from a
 * devserver's recordings of whole exchanges. */
#ifndef VELMORA_GEN_INFER_H
#define VELMORA_GEN_INFER_H

#include <string>
#include <vector>

namespace velmora_gen {

/* The schema's text from `inputs` (files, or directories standing for
 * their .json files), records and operations in the order first seen;
 * false with one line per conflict (two types seen for one field,
 * argument or result, a bare number no Integer holds) or one line naming
 * an input that cannot be read in `error`. A file that is not JSON, or
 * holds no recording and no typed value, is skipped with a line in
 * `warnings`, as is an input with nothing to infer from. */
bool infer_schema(const std::vector<std::string> &inputs, std::string *schema,
                  std::string *error, std::string *warnings);

} // namespace velmora_gen

#endif
