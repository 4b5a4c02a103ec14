/* Wire names and the C names derived from them: one rule for records,
 * fields and arguments, documented in the README and `--help`. */
#ifndef VELMORA_GEN_NAMES_H
#define VELMORA_GEN_NAMES_H

#include <functional>
#include <string>

#include "schema.h"

namespace velmora_gen {

/* The rule as the help text and the README state it. */
extern const char *const naming_rule;

/* Gives every record, field and argument its C name (a `c_name` the schema
 * gave is kept when it is free) and checks the operations' names against
 * them all; false with one line in `error` naming what is refused. */
bool assign_c_names(Schema *schema, std::string *error);

/* The C name of an operation known only by its path (`--infer`): steps 1
 * to 3 of the rule ("/items/list" -> items_list). */
std::string operation_name(const std::string &path);

/* The first of `base`, base_2, base_3, ... (base2, base3, ... after a
 * trailing "_", so that a plain identifier stays one) that is not `taken`:
 * how every name the generator picks gives way. */
std::string first_free(const std::string &base,
                       const std::function<bool(const std::string &)> &taken);

/* Renames each operation whose name a record's functions, a container
 * reader or an earlier operation already take, to NAME_2, NAME_3, ...
 * (`--infer`, where names come from paths and no c_name is given, so the
 * records and fields are always named). */
void free_operation_names(Schema *schema);

/* `text` in lower case: the prefix of a record's accessors. */
std::string lower(std::string text);

/* True for a C++ keyword. */
bool keyword(const std::string &name);

/* True for an identifier that is not a keyword and not reserved (no "__",
 * no leading underscore). */
bool plain_identifier(const std::string &name);

} // namespace velmora_gen

#endif
