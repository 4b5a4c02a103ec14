/* The schema velmora-gen reads: records of typed fields and operations. */
#ifndef VELMORA_GEN_SCHEMA_H
#define VELMORA_GEN_SCHEMA_H

#include <optional>
#include <string>
#include <vector>

namespace velmora_gen {

/* A field type: a base name ("Long", a record's name) or a container
 * ("List", "Dict", "ResultSet") with exactly one element type. */
struct Type {
  std::string name;
  std::vector<Type> element;
};

/* `name` is the wire name, sent and read as it stands; `given_c_name` the
 * identifier the schema asks generated code to give it, if any (names.h
 * gives every item its identifier). */
struct Field {
  std::string name;
  Type type;
  std::string doc;
  std::optional<std::string> given_c_name;
};

/* A record's `name` is its "__type__"; field types name records by it. */
struct Record {
  std::string name;
  std::vector<Field> fields;
  std::string doc;
  std::optional<std::string> given_c_name;
};

struct Operation {
  std::string name;
  std::string path, doc;
  std::string result_member = "result";
  std::vector<Field> arguments;
  std::vector<Type> result; /* empty: the operation gives no value */
};

struct Schema {
  std::vector<Record> records;
  std::vector<Operation> operations;
};

/* Reads and checks `file`; on failure `error` holds one line naming the
 * record or operation and the field. Members keep the order written. */
bool read_schema(const std::string &file, Schema *schema, std::string *error);

/* The types of every field, argument and result, in schema order: the
 * records' fields, then each operation's arguments and result. */
std::vector<Type> used_types(const Schema &schema);

/* The one ListInfo argument of an operation that gives a ResultSet: its
 * pages can be walked (the `_each` call). Null for any other operation. */
const Field *page_argument(const Operation &op);

} // namespace velmora_gen

#endif
