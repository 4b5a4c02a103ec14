/* The generated header and source, as texts. */
#ifndef VELMORA_GEN_WRITERS_H
#define VELMORA_GEN_WRITERS_H

#include <string>
#include <vector>

#include "names.h"
#include "schema.h"
#include "types.h"

namespace velmora_gen {

std::string header_text(const Schema &schema, const Names &names,
                        const Catalog &catalog, const std::string &base);
std::string source_text(const Schema &schema, const Names &names,
                        const Catalog &catalog, const std::string &base);

/* The source as `count` files, each with its own text: the first (a
 * small schema's only) as source_text writes it, each file of several
 * with the records and container types it needs from the others declared
 * at its top, so that it does not read the header and a change elsewhere
 * leaves its text alone. */
std::vector<std::string> source_texts(const Schema &schema, const Names &names,
                                      const Catalog &catalog,
                                      const std::string &base, size_t count);

/* A record's struct, as the header defines it. */
std::string struct_text(const Record &record, const Names &names,
                        const Catalog &catalog);
/* R_new, R_deleter, R_deserialize, R_serialize and R_copier of the record
 * named `r` in C, declared. */
std::string record_functions(const std::string &r);

/* Shared by both writers: declarations laid out as lines, ending in
 * `tail` (";" in the header, " {" before a body); `record` and `field` are
 * C names. */
std::string getter_declaration(const std::string &record,
                               const std::string &field, const TypeInfo &info,
                               const std::string &self,
                               const std::string &tail);
std::string setter_declaration(const std::string &record,
                               const std::string &field, const TypeInfo &info,
                               const std::string &self,
                               const std::string &value,
                               const std::string &tail);
/* r_newField, the maker of a container field's empty value. */
std::string new_declaration(const std::string &record, const std::string &field,
                            const TypeInfo &info, const std::string &tail);
/* r_unknownMembers, which lends the members no field names. */
std::string unknown_declaration(const std::string &record,
                                const std::string &tail);
/* R_fast, the reader of a record's JSON text: file-local, or `shared` by
 * the files of several, which a program does not export. */
std::string fast_declaration(const std::string &record, const std::string &tail,
                             bool shared = false);
/* R_read, or a container type's reader of JSON text. */
std::string text_reader_declaration(const std::string &c_type,
                                    const std::string &name,
                                    const std::string &tail);
std::string operation_declaration(const Operation &op, const Names &names,
                                  const Catalog &catalog,
                                  const std::string &tail);

/* The names an operation's walk of pages (op_each) gives its own
 * parameters and locals, each free of the operation's argument names. */
struct EachNames {
  std::string page_size, each, data, handed, page;
};
EachNames each_names(const Operation &op, const Names &names);
/* op_each, for an operation with a page_argument. */
std::string each_declaration(const Operation &op, const Names &names,
                             const Catalog &catalog, const std::string &tail);

} // namespace velmora_gen

#endif
