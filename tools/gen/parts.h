/* A big schema's source written as several files, each compiling in
 * bounded memory, the header one as before. */
#ifndef VELMORA_GEN_PARTS_H
#define VELMORA_GEN_PARTS_H

#include <string>
#include <vector>

#include "schema.h"
#include "types.h"

namespace velmora_gen {

/* Records a part holds on average by default: parts of up to about 40
 * records, as the hash spreads them, compile in about 400 MB (g++ -O2). */
extern const size_t records_per_part;

/* A share of the schema written as one source file. */
struct Part {
  Schema schema; /* its records and operations, in schema order */
  /* The container types whose public text readers it writes. */
  std::vector<Type> owned;
  /* The records of other parts it calls, by wire name. */
  std::vector<std::string> called;
};

/* One part per records_per_part records, at least one. */
size_t default_parts(const Schema &schema);

/* `count` parts: each record and operation in the part its name's hash
 * picks, so that changing one rewrites that part alone; each container
 * type owned by the first part naming it. */
std::vector<Part> split_schema(const Schema &schema, const Catalog &catalog,
                               size_t count);

/* The file of part `index` (from 0): BASE.cpp, BASE_2.cpp, ... */
std::string part_file(const std::string &base, size_t index);

} // namespace velmora_gen

#endif
