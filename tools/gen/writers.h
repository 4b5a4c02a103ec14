/* The generated header and source, as texts. */
#ifndef VELMORA_GEN_WRITERS_H
#define VELMORA_GEN_WRITERS_H

#include <string>

#include "schema.h"
#include "types.h"

namespace velmora_gen {

std::string header_text(const Schema &schema, const Catalog &catalog,
                        const std::string &base);
std::string source_text(const Schema &schema, const Catalog &catalog,
                        const std::string &base);

/* Shared by both writers. */
std::string capitalized(std::string text);
/* The parameter a setter or an operation takes for a value of `type`,
 * named `name`. */
std::string parameter(const TypeInfo &info, const std::string &name);
std::string getter_declaration(const Record &record, const Field &field,
                               const TypeInfo &info, const std::string &self);
std::string setter_declaration(const Record &record, const Field &field,
                               const TypeInfo &info, const std::string &self,
                               const std::string &value);
std::string operation_declaration(const Operation &op, const Catalog &catalog);

} // namespace velmora_gen

#endif
