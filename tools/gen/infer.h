/* A schema inferred from a reply that holds typed envelopes. */
#ifndef VELMORA_GEN_INFER_H
#define VELMORA_GEN_INFER_H

#include <string>

namespace velmora_gen {

/* The schema's text, records in the order first seen; false with one line
 * per conflicting field (two types seen) in `error`. */
bool infer_schema(const std::string &file, std::string *schema,
                  std::string *error);

} // namespace velmora_gen

#endif
