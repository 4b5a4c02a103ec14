/* The file-local helpers a generated source may need. */
#ifndef VELMORA_GEN_SOURCE_HELPERS_H
#define VELMORA_GEN_SOURCE_HELPERS_H

#include <string>
#include <vector>

#include "types.h"

namespace velmora_gen {

struct Chunk {
  std::string name; /* the function it defines */
  std::string text;
};

/* The fixed helpers, then a maker and a reader per container type; each
 * after those it calls. */
std::vector<Chunk> helper_chunks(const Catalog &catalog);

/* The helpers that `body` calls, directly or through other helpers, in
 * the order of `chunks`: unused ones would be warned about. */
std::string used_helpers(const std::vector<Chunk> &chunks,
                         const std::string &body);

/* True for the names of the helpers a generated source defines, which
 * a record or a call must not take. */
bool helper_name(const std::string &name);

} // namespace velmora_gen

#endif
