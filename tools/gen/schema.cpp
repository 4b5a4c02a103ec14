#include "schema.h"

#include <algorithm>
#include <cctype>
#include <iterator>
#include <set>

#include "json_order.h"
#include "source_helpers.h"

namespace velmora_gen {

namespace {

const char *const keywords[] = {"alignas",
                                "alignof",
                                "and",
                                "asm",
                                "auto",
                                "bool",
                                "break",
                                "case",
                                "catch",
                                "char",
                                "class",
                                "const",
                                "constexpr",
                                "const_cast",
                                "continue",
                                "decltype",
                                "default",
                                "delete",
                                "do",
                                "double",
                                "else",
                                "enum",
                                "explicit",
                                "export",
                                "extern",
                                "false",
                                "float",
                                "for",
                                "friend",
                                "goto",
                                "if",
                                "inline",
                                "int",
                                "long",
                                "mutable",
                                "namespace",
                                "new",
                                "noexcept",
                                "not",
                                "nullptr",
                                "operator",
                                "or",
                                "private",
                                "protected",
                                "public",
                                "register",
                                "reinterpret_cast",
                                "return",
                                "short",
                                "signed",
                                "sizeof",
                                "static",
                                "static_assert",
                                "static_cast",
                                "struct",
                                "switch",
                                "template",
                                "this",
                                "throw",
                                "true",
                                "try",
                                "typedef",
                                "typeid",
                                "typename",
                                "union",
                                "unsigned",
                                "using",
                                "virtual",
                                "void",
                                "volatile",
                                "while",
                                "xor"};

bool identifier(const std::string &name) {
  if (name.empty() || isdigit(static_cast<unsigned char>(name[0])) != 0 ||
      name.find("__") != std::string::npos)
    return false;
  for (char c : name)
    if (isalnum(static_cast<unsigned char>(c)) == 0 && c != '_')
      return false;
  return std::find(std::begin(keywords), std::end(keywords), name) ==
         std::end(keywords);
}

/* The generated call's own parameters and locals. */
bool call_name(const std::string &name) {
  for (const char *own :
       {"context", "result", "request", "body", "reply", "code"})
    if (name == own)
      return true;
  return false;
}

/* Texts written into C string literals: printable, no quote or
 * backslash. */
bool plain_text(const std::string &text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
    return c >= ' ' && c <= '~' && c != '"' && c != '\\';
  });
}

class SchemaReader {
public:
  SchemaReader(const std::string &file, std::string *error)
      : file_(file), error_(error) {}

  bool read(const Json::Value &top, Schema *schema);

private:
  bool fail(const std::string &where, const std::string &what) {
    *error_ = file_ + ": " + where + what;
    return false;
  }
  /* Fields are members and may share the generated code's names. */
  bool name_ok(const std::string &where, const std::string &name,
               bool field = false);
  bool type_ok(const std::string &where, const Json::Value &text, Type *type);
  bool known(const Type &type) const;
  bool read_fields(const std::string &where, const Json::Value &object,
                   std::vector<Field> *fields);
  bool read_record(const std::string &name, const Json::Value &object,
                   Schema *schema);
  bool read_operation(const std::string &name, const Json::Value &object,
                      Schema *schema);

  std::string file_;
  std::string *error_;
  std::set<std::string> records_;
  std::set<std::string> taken_; /* generated function names so far */
};

bool SchemaReader::name_ok(const std::string &where, const std::string &name,
                           bool field) {
  if (!identifier(name))
    return fail(where, "\"" + name + "\" is not a C identifier");
  if (library_name(name))
    return fail(where, "\"" + name + "\" is a name of the library");
  if (!field && helper_name(name))
    return fail(where, "\"" + name + "\" is a name of the generated code");
  return true;
}

bool SchemaReader::known(const Type &type) const {
  if (!type.element.empty())
    return known(type.element[0]);
  return builtin_type(type.name) || records_.count(type.name) != 0;
}

bool SchemaReader::type_ok(const std::string &where, const Json::Value &text,
                           Type *type) {
  if (!text.isString())
    return fail(where, "the type must be a string");
  if (!parse_type(text.asString(), type) || !known(*type))
    return fail(where, "unknown type \"" + text.asString() + "\"");
  return true;
}

bool SchemaReader::read_fields(const std::string &where,
                               const Json::Value &object,
                               std::vector<Field> *fields) {
  if (!object.isObject())
    return fail(where, "not an object");
  for (const std::string &name : ordered_members(object)) {
    Field field{name, Type()};
    std::string at = where;
    at += ", field " + name + ": ";
    if (!name_ok(at, name, true))
      return false;
    if (records_.count(name) != 0)
      return fail(at, "\"" + name + "\" is a record's name");
    if (!type_ok(at, object[name], &field.type))
      return false;
    fields->push_back(field);
  }
  return true;
}

bool SchemaReader::read_record(const std::string &name,
                               const Json::Value &object, Schema *schema) {
  std::string where = "record " + name;
  Record record{name, {}};
  if (!read_fields(where, object, &record.fields))
    return false;
  for (const Field &field : record.fields)
    for (const char *verb : {"_get", "_set", "_new"})
      taken_.insert(lower(name) + verb + field.name);
  taken_.insert(name + "_new");
  for (const char *op : {"_deleter", "_deserialize", "_serialize", "_copier"})
    taken_.insert(name + op);
  schema->records.push_back(record);
  return true;
}

bool SchemaReader::read_operation(const std::string &name,
                                  const Json::Value &object, Schema *schema) {
  std::string where = "operation " + name;
  if (!name_ok(where + ": ", name))
    return false;
  if (taken_.count(name) != 0 || records_.count(name) != 0)
    return fail(where + ": ", "\"" + name + "\" is a record's name");
  if (!object.isObject())
    return fail(where + ": ", "not an object");
  Operation op;
  op.name = name;
  const Json::Value &path = object["path"];
  if (!path.isString() || !plain_text(path.asString()))
    return fail(where + ", field path: ",
                "a path (printable text without quotes) is needed");
  op.path = path.asString();
  const std::string field_at = where + ", field ";
  for (const std::string &member : object.getMemberNames())
    if (member != "path" && member != "arguments" && member != "result" &&
        member != "result_member")
      return fail(field_at + member, ": unknown member");
  if (object.isMember("arguments") &&
      !read_fields(where + ", arguments", object["arguments"], &op.arguments))
    return false;
  for (const Field &argument : op.arguments)
    if (call_name(argument.name) || helper_name(argument.name))
      return fail(where + ", field " + argument.name + ": ",
                  "the call itself uses this name");
  if (object.isMember("result")) {
    op.result.emplace_back();
    if (!type_ok(where + ", field result: ", object["result"], &op.result[0]))
      return false;
  }
  if (object.isMember("result_member")) {
    const Json::Value &member = object["result_member"];
    if (!member.isString() || !plain_text(member.asString()))
      return fail(where + ", field result_member: ", "not a plain text");
    op.result_member = member.asString();
  }
  schema->operations.push_back(op);
  return true;
}

bool SchemaReader::read(const Json::Value &top, Schema *schema) {
  if (!top.isObject())
    return fail("", "the schema must be a JSON object");
  for (const std::string &member : top.getMemberNames())
    if (member != "records" && member != "operations")
      return fail("", "unknown member \"" + member + "\"");
  const Json::Value &records = top["records"];
  const Json::Value &operations = top["operations"];
  if (!(records.isObject() || records.isNull()) ||
      !(operations.isObject() || operations.isNull()))
    return fail("", "\"records\" and \"operations\" must be objects");
  std::set<std::string> lowered;
  for (const std::string &name : ordered_members(records)) {
    if (!name_ok("record " + name + ": ", name))
      return false;
    if (!lowered.insert(lower(name)).second)
      return fail("record " + name + ": ",
                  "its accessors' prefix \"" + lower(name) + "\" is taken");
    records_.insert(name);
  }
  for (const std::string &name : ordered_members(records))
    if (!read_record(name, records[name], schema))
      return false;
  for (const std::string &name : ordered_members(operations))
    if (!read_operation(name, operations[name], schema))
      return false;
  return true;
}

} // namespace

std::string lower(std::string text) {
  for (char &c : text)
    c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
  return text;
}

bool read_schema(const std::string &file, Schema *schema, std::string *error) {
  Json::Value top;
  if (!read_json_file(file, &top, error))
    return false;
  return SchemaReader(file, error).read(top, schema);
}

} // namespace velmora_gen
