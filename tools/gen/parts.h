/* A big schema's source written as several files, each compiling in
 * bounded memory, the header one as before. */
#ifndef VELMORA_GEN_PARTS_H
#define VELMORA_GEN_PARTS_H

#include <string>
#include <vector>

#include "schema.h"
#include "types.h"

namespace velmora_gen {

/* The weight of a file of several on average, by default: about 30
 * records of 20 fields with an operation each. As the hash spreads them,
 * a file weighs up to about half again as much, and compiles in about
 * 400 MB (g++ -O2). velmora_generate in CMake counts the same. */
extern const size_t part_weight;

/* What the schema's code costs a compiler, as measured in peak memory: a
 * record weighs record_weight, each of its fields 1, each operation
 * operation_weight. */
extern const size_t record_weight, operation_weight;
size_t schema_weight(const Schema &schema);

/* A share of the schema written as one source file. */
struct Part {
  Schema schema; /* its records and operations, in schema order */
  /* The container types whose public text readers it writes. */
  std::vector<Type> owned;
  /* The records of other parts it calls, by wire name. */
  std::vector<std::string> called;
};

/* One part per part_weight, rounded up; at most one per record and
 * operation (a record alone heavier than a part is one file), at least
 * one. */
size_t default_parts(const Schema &schema);

/* `count` parts: each record and operation in the part its name's hash
 * picks, so that changing one rewrites that part (and the header) alone
 * while the count stays; each container type owned by the first part
 * naming it. */
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
