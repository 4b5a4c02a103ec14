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

/* K for BASE_K.cpp (K from 2), else 0. */
size_t part_number(const std::string &file, const std::string &base);

/* The comment a source file of `base` opens with: file `index` of `count`
 * (count 1: the only one). */
std::string source_banner(const std::string &base, size_t index, size_t count);

/* `text` opens with the banner of a source file of `base`, of any part and
 * count, however wrapped: a file velmora-gen wrote for `base`. */
bool source_of(const std::string &text, const std::string &base);

} // namespace velmora_gen

#endif
