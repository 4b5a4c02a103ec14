/* Wire names and the C names derived from them: one rule for records,
 * fields and arguments, documented in the README and `--help`. */
#ifndef VELMORA_GEN_NAMES_H
#define VELMORA_GEN_NAMES_H

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "schema.h"

namespace velmora_gen {

/* The rule as the help text and the README state it. */
extern const char *const naming_rule;

/* The C names of a record and of its fields, by their wire names. */
struct RecordNames {
  std::string c_name;
  std::map<std::string, std::string> fields;
};

/* The identifiers generated code gives a schema's items, read beside the
 * schema; an operation's is its own name. */
struct Names {
  std::map<std::string, RecordNames> records; /* by wire name */
  /* By operation, then by the argument's wire name. */
  std::map<std::string, std::map<std::string, std::string>> arguments;
  /* The text reader of each container type, by its type text. */
  std::map<std::string, std::string> readers;

  const std::string &record(const Record &record) const;
  const std::string &field(const Record &record, const Field &field) const;
  const std::string &argument(const Operation &op, const Field &argument) const;
  const std::string &reader(const Type &container) const;
};

/* Names every record, field and argument (a `c_name` the schema gives is
 * kept when it is free) and every container type's reader, and checks the
 * operations' names against them all; false with one line in `error`
 * naming what is refused. */
bool name_schema(const Schema &schema, Names *names, std::string *error);

/* The C name of an operation known only by its path (`--infer`): steps 1
 * to 3 of the rule ("/items/list" -> items_list). */
std::string operation_name(const std::string &path);

/* The first of `base`, base_2, base_3, ... (base2, base3, ... after a
 * trailing "_", so that a plain identifier stays one) that is not `taken`:
 * how every name the generator picks gives way. */
std::string first_free(const std::string &base,
                       const std::function<bool(const std::string &)> &taken);

/* The operations' names, in order, each renamed to NAME_2, NAME_3, ...
 * when a record's functions, a container reader or an earlier operation
 * already take it (`--infer`, where names come from paths and no c_name is
 * given, so the records and fields are always named). */
std::vector<std::string> free_operation_names(const Schema &schema);

/* A field's accessor `verb` ("_get", "_set" or "_new") from the record's
 * and the field's C names: "item_getName". */
std::string accessor(const std::string &record, const char *verb,
                     const std::string &field);

/* A record's accessor of the members no field names: "item_unknownMembers". */
std::string unknown_accessor(const std::string &record);

/* True for an identifier that is not a keyword and not reserved (no "__",
 * no leading underscore). */
bool plain_identifier(const std::string &name);

} // namespace velmora_gen

#endif
