/* The schema velmora-gen reads: records of typed fields and operations. */
#ifndef VELMORA_GEN_SCHEMA_H
#define VELMORA_GEN_SCHEMA_H

#include <map>
#include <string>
#include <vector>

namespace velmora_gen {

/* A field type: a base name ("Long", a record's name) or a container
 * ("List", "Dict", "ResultSet") with exactly one element type. */
struct Type {
  std::string name;
  std::vector<Type> element;
};

/* `name` is the wire name, sent and read as it stands; `c_name` the
 * identifier generated code gives it (the schema's own when `given`). */
struct Field {
  std::string name;
  Type type;
  std::string c_name, doc;
  bool given = false;
};

/* A record's `name` is its "__type__"; field types name records by it. */
struct Record {
  std::string name;
  std::vector<Field> fields;
  std::string c_name, doc;
  bool given = false;
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
  /* The text reader of each container type, by its type text. */
  std::map<std::string, std::string> container_readers;
};

/* Reads and checks `file`; on failure `error` holds one line naming the
 * record or operation and the field. Members keep the order written. */
bool read_schema(const std::string &file, Schema *schema, std::string *error);

/* The text of `type` as a schema writes it: "List<Dict<Long>>". */
std::string type_text(const Type &type);

/* Parses a type text: "List<T>", "Dict<T>", "ResultSet<T>" or else a
 * name as it stands; false when it is not well formed. Names are not
 * checked here. */
bool parse_type(const std::string &text, Type *type);

/* True for the library's own type, function and structure names, which a
 * generated name must not take. */
bool library_name(const std::string &name);
/* True for a macro of the headers generated code includes. */
bool system_macro(const std::string &name);
/* True for a file-scope name of the C library (a function, type or
 * variable) those headers declare. */
bool system_global(const std::string &name);

/* `text` in lower case: the prefix of a record's accessors. */
std::string lower(std::string text);

} // namespace velmora_gen

#endif
