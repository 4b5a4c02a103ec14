#include "schema.h"

#include <algorithm>
#include <set>

#include "escapes.h"
#include "json_order.h"
#include "types.h"

namespace velmora_gen {

namespace {

/* Texts written into C string literals: printable, no quote or
 * backslash. */
bool plain_text(const std::string &text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
    return c >= ' ' && c <= '~' && c != '"' && c != '\\';
  });
}

/* A wire name as a message shows it: on one line. */
std::string shown(const std::string &name) {
  bool plain = std::all_of(name.begin(), name.end(), [](char c) {
    return static_cast<unsigned char>(c) >= ' ';
  });
  return plain ? name : comment_quoted(name);
}

/* A record's type text would read as another type. */
bool library_type(const std::string &name) {
  Type type;
  return base_type(name) != nullptr || name == "List" || name == "Dict" ||
         name == "ResultSet" || !parse_type(name, &type) ||
         !type.element.empty();
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
  bool wire_ok(const std::string &where, const std::string &name);
  bool type_ok(const std::string &where, const Json::Value &text, Type *type);
  bool known(const Type &type) const;
  bool texts_ok(const std::string &where, const Json::Value &object,
                const std::set<std::string> &members);
  bool read_field(const std::string &where, const Json::Value &written,
                  Field *field);
  bool read_fields(const std::string &where, const Json::Value &object,
                   std::vector<Field> *fields);
  bool read_record(const std::string &name, const Json::Value &object,
                   Schema *schema);
  bool read_operation(const std::string &name, const Json::Value &object,
                      Schema *schema);

  std::string file_;
  std::string *error_;
  std::set<std::string> records_;
};

bool SchemaReader::wire_ok(const std::string &where, const std::string &name) {
  if (name.empty())
    return fail(where, "a name must not be empty");
  if (!utf8(name))
    return fail(where, "\"" + shown(name) + "\" is not UTF-8");
  return true;
}

bool SchemaReader::known(const Type &type) const {
  if (!type.element.empty())
    return known(type.element[0]);
  return base_type(type.name) != nullptr || records_.count(type.name) != 0;
}

bool SchemaReader::type_ok(const std::string &where, const Json::Value &text,
                           Type *type) {
  if (!text.isString())
    return fail(where, "the type must be a string");
  if (!parse_type(text.asString(), type) || !known(*type))
    return fail(where, "unknown type \"" + shown(text.asString()) +
                           "\": " + type_hint(text.asString(), records_));
  return true;
}

/* Only `members`, each a text. */
bool SchemaReader::texts_ok(const std::string &where, const Json::Value &object,
                            const std::set<std::string> &members) {
  for (const std::string &member : ordered_members(object)) {
    if (members.count(member) == 0)
      return fail(where, "unknown member \"" + shown(member) + "\"");
    if (member != "fields" && member != "arguments" &&
        !object[member].isString())
      return fail(where, "\"" + member + "\" must be a string");
  }
  return true;
}

/* A type text, or {"type": T, "c_name": N, "doc": D}. */
bool SchemaReader::read_field(const std::string &where,
                              const Json::Value &written, Field *field) {
  if (!written.isObject())
    return type_ok(where, written, &field->type);
  if (!texts_ok(where, written, {"type", "c_name", "doc"}) ||
      !type_ok(where, written["type"], &field->type))
    return false;
  if (written.isMember("c_name"))
    field->given_c_name = written["c_name"].asString();
  field->doc = written["doc"].asString();
  return true;
}

bool SchemaReader::read_fields(const std::string &where,
                               const Json::Value &object,
                               std::vector<Field> *fields) {
  if (!object.isObject())
    return fail(where + ": ", "not an object");
  for (const std::string &name : ordered_members(object)) {
    Field field;
    field.name = name;
    std::string at = where + ", field " + shown(name) + ": ";
    if (!wire_ok(at, name) || !read_field(at, object[name], &field))
      return false;
    fields->push_back(field);
  }
  return true;
}

/* Fields as an object, or {"fields": {...}, "c_name": N, "doc": D}. */
bool SchemaReader::read_record(const std::string &name,
                               const Json::Value &object, Schema *schema) {
  std::string where = "record " + shown(name);
  Record record;
  record.name = name;
  const Json::Value *fields = &object;
  if (object.isObject() && object["fields"].isObject()) {
    if (!texts_ok(where + ": ", object, {"fields", "c_name", "doc"}))
      return false;
    fields = &object["fields"];
    if (object.isMember("c_name"))
      record.given_c_name = object["c_name"].asString();
    record.doc = object["doc"].asString();
  }
  if (!read_fields(where, *fields, &record.fields))
    return false;
  schema->records.push_back(record);
  return true;
}

bool SchemaReader::read_operation(const std::string &name,
                                  const Json::Value &object, Schema *schema) {
  std::string where = "operation " + shown(name);
  if (!object.isObject())
    return fail(where + ": ", "not an object");
  if (!texts_ok(where + ": ", object,
                {"path", "arguments", "result", "result_member", "doc"}))
    return false;
  Operation op;
  op.name = name;
  op.path = object["path"].asString();
  op.doc = object["doc"].asString();
  if (!plain_text(op.path))
    return fail(where + ", field path: ",
                "a path (printable text without quotes) is needed");
  if (object.isMember("arguments") &&
      !read_fields(where + ", arguments", object["arguments"], &op.arguments))
    return false;
  if (object.isMember("result")) {
    op.result.emplace_back();
    if (!type_ok(where + ", field result: ", object["result"], &op.result[0]))
      return false;
  }
  if (object.isMember("result_member")) {
    op.result_member = object["result_member"].asString();
    if (!wire_ok(where + ", field result_member: ", op.result_member))
      return false;
  }
  schema->operations.push_back(op);
  return true;
}

bool SchemaReader::read(const Json::Value &top, Schema *schema) {
  if (!top.isObject())
    return fail("", "the schema must be a JSON object");
  for (const std::string &member : top.getMemberNames())
    if (member != "records" && member != "operations")
      return fail("", "unknown member \"" + shown(member) + "\"");
  const Json::Value &records = top["records"];
  const Json::Value &operations = top["operations"];
  if (!(records.isObject() || records.isNull()) ||
      !(operations.isObject() || operations.isNull()))
    return fail("", "\"records\" and \"operations\" must be objects");
  for (const std::string &name : ordered_members(records)) {
    std::string where = "record " + shown(name) + ": ";
    if (!wire_ok(where, name))
      return false;
    if (library_type(name))
      return fail(where, "\"" + shown(name) + "\" is a type of the library");
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

bool read_schema(const std::string &file, Schema *schema, std::string *error) {
  Json::Value top;
  if (!read_json_file(file, &top, error))
    return false;
  return SchemaReader(file, error).read(top, schema);
}

std::vector<Type> used_types(const Schema &schema) {
  std::vector<Type> types;
  for (const Record &record : schema.records)
    for (const Field &field : record.fields)
      types.push_back(field.type);
  for (const Operation &op : schema.operations) {
    for (const Field &argument : op.arguments)
      types.push_back(argument.type);
    types.insert(types.end(), op.result.begin(), op.result.end());
  }
  return types;
}

const Field *page_argument(const Operation &op) {
  if (op.result.empty() || op.result[0].name != "ResultSet")
    return nullptr;
  const Field *found = nullptr;
  for (const Field &argument : op.arguments) {
    if (argument.type.name != "ListInfo" || !argument.type.element.empty())
      continue;
    if (found != nullptr)
      return nullptr;
    found = &argument;
  }
  return found;
}

} // namespace velmora_gen
