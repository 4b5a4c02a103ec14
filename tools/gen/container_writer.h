/* The functions a generated source writes for each container type. */
#ifndef VELMORA_GEN_CONTAINER_WRITER_H
#define VELMORA_GEN_CONTAINER_WRITER_H

#include <string>

#include "types.h"

namespace velmora_gen {

/* make_cN, read_cN, fast_cN and, when a field or an element needs it,
 * copy_cN of each container type of `schema`, inner types first. */
std::string containers_text(const Schema &schema, const Catalog &catalog);

} // namespace velmora_gen

#endif
