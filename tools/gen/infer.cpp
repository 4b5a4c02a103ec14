#include "infer.h"

#include <algorithm>
#include <filesystem>
#include <utility>
#include <vector>

#include <json/writer.h>

#include "common/recording.h"
#include "json_order.h"
#include "names.h"
#include "types.h"

namespace velmora_gen {

namespace {

using Typed = std::vector<std::pair<std::string, std::string>>; /* name, type */

struct Seen {
  std::string name;
  Typed fields;
};

/* An operation seen in recordings, keyed by its path. */
struct Call {
  std::string path, name;
  Typed arguments;
  std::string result, result_member;
};

class Inferrer {
public:
  /* The type of a value; "" when it does not tell (null, plain numbers
   * and objects without "__type__", whose members are still searched). */
  std::string type_of(const Json::Value &value);
  /* Reports each bare number in `value` no Integer holds, as the type of
   * what stands at `where` ("record Item, field n"); a record's fields
   * are reported where it is read. */
  void bare_numbers(const std::string &where, const Json::Value &value);
  void recording(const velmora_tools::Recorded &exchange);
  /* The file's envelopes; false when it holds no recording and no typed
   * value. */
  bool reply_file(const Json::Value &value);
  std::string schema();
  std::string conflicts;

private:
  std::string container(const std::string &name, const Json::Value &value);
  void record(const std::string &name, const Json::Value &properties);
  void reply(Call &call, const Json::Value &body);
  Call &call_of(const std::string &path);
  void agree(const std::string &what, std::string &seen,
             const std::string &type);
  void note(const std::string &where, Typed &seen, const std::string &name,
            const std::string &type);
  void free_names();
  std::string records_text() const;
  std::string calls_text() const;
  std::vector<Seen> records_;
  std::vector<Call> calls_;
  bool typed_ = false;
};

/* A bare number is an Integer or no type at all: the library's other
 * numbers travel in envelopes. */
std::string bare_number(const Json::Value &value) {
  std::string text = value.toStyledString();
  text.pop_back();
  return text + " is no Integer (a bare number is a 32-bit integer)";
}

std::string Inferrer::type_of(const Json::Value &value) {
  if (value.isString())
    return "Unicode";
  if (value.isBool())
    return "Boolean";
  if (value.isInt())
    return "Integer";
  const Json::Value &type = value.isObject() ? value["__type__"] : value;
  if (!value.isObject() || !type.isString()) {
    if (value.isObject() || value.isArray())
      for (const Json::Value &member : value)
        type_of(member);
    return "";
  }
  std::string name = type.asString();
  typed_ = true;
  if (name == "List" || name == "Dict" || name == "ResultSet")
    return container(name, value);
  if (value["__properties__"].isObject() && name != "Ordering" &&
      name != "ListInfo")
    record(name, value["__properties__"]);
  return name;
}

void Inferrer::bare_numbers(const std::string &where,
                            const Json::Value &value) {
  if (value.isNumeric() && !value.isInt())
    conflicts += where + ": " + bare_number(value) + "\n";
  const Json::Value &type = value.isObject() ? value["__type__"] : value;
  std::string name = type.isString() ? type.asString() : "";
  if (name == "List" || name == "Dict" || name == "ResultSet")
    bare_numbers(where, value["__elements__"]);
  else if (value.isArray() || (value.isObject() && !type.isString()))
    for (const Json::Value &member : value)
      bare_numbers(where, member);
}

std::string Inferrer::container(const std::string &name,
                                const Json::Value &value) {
  std::string element;
  for (const Json::Value &member : value["__elements__"]) {
    std::string type = type_of(member);
    if (element.empty())
      element = type;
  }
  const Json::Value &sub_type = value["__sub_type__"];
  if (element.empty() && sub_type.isString() && sub_type.asString() != "List" &&
      sub_type.asString() != "Dict" && sub_type.asString() != "ResultSet")
    element = sub_type.asString();
  return element.empty() ? "" : name + "<" + element + ">";
}

void Inferrer::record(const std::string &name, const Json::Value &properties) {
  size_t at = 0;
  while (at < records_.size() && records_[at].name != name)
    at++;
  if (at == records_.size())
    records_.push_back({name, {}});
  const std::string where = "record " + name + ", field ";
  for (const std::string &field : ordered_members(properties)) {
    std::string type = type_of(properties[field]);
    bare_numbers(where + field, properties[field]);
    note(where, records_[at].fields, field, type);
  }
}

/* The arguments are the request's members; the result is read from a 200
 * reply alone, as the generated call reads it. */
void Inferrer::recording(const velmora_tools::Recorded &exchange) {
  Call &call = call_of(exchange.path);
  const Json::Value &request = exchange.request.json;
  const std::string where = "operation " + call.name + ", argument ";
  if (request.isObject())
    for (const std::string &name : ordered_members(request)) {
      std::string type = type_of(request[name]);
      bare_numbers(where + name, request[name]);
      note(where, call.arguments, name, type);
    }
  const Json::Value &body = exchange.reply.json;
  if (exchange.status == 200 && body.isObject())
    reply(call, body);
}

/* The result member: a reply's only member, else "result" when it has one,
 * else its first member whose type shows. */
void Inferrer::reply(Call &call, const Json::Value &body) {
  std::string member, type;
  size_t members = 0;
  for (const std::string &name : ordered_members(body)) {
    if (name.empty())
      continue;
    members++;
    std::string seen = type_of(body[name]);
    bool better = member.empty() || (member != "result" && name == "result") ||
                  (type.empty() && member != "result" && !seen.empty());
    if (better)
      member = name, type = seen;
  }
  const std::string where = "operation " + call.name + ", result";
  /* Chosen by its name or as the only one, the member is the result
   * whatever it holds; a first member that shows no type is not. */
  if (members == 1 || member == "result" || !type.empty())
    bare_numbers(where, body[member]);
  if (type.empty())
    return;
  agree(where + "_member", call.result_member, member);
  agree(where, call.result, type);
}

/* A path's operation, named by the naming rule; a name an earlier path
 * took gets _2, _3, ... */
Call &Inferrer::call_of(const std::string &path) {
  for (Call &call : calls_)
    if (call.path == path)
      return call;
  std::string name =
      first_free(operation_name(path), [&](const std::string &candidate) {
        return std::any_of(calls_.begin(), calls_.end(),
                           [&](const Call &c) { return c.name == candidate; });
      });
  calls_.push_back({path, name, {}, "", ""});
  return calls_.back();
}

void Inferrer::agree(const std::string &what, std::string &seen,
                     const std::string &type) {
  if (seen.empty())
    seen = type;
  else if (!type.empty() && type != seen)
    conflicts += what + ": seen as " + seen + " and as " + type + "\n";
}

void Inferrer::note(const std::string &where, Typed &seen,
                    const std::string &name, const std::string &type) {
  /* A member named "" cannot be a field or an argument; a generated
   * record keeps it among its unknown members. */
  if (name.empty())
    return;
  for (auto &known : seen)
    if (known.first == name)
      return agree(where + name, known.second, type);
  seen.emplace_back(name, type);
}

/* Members only ever seen null have no type to name them by. */
std::vector<Field> typed_fields(const Typed &members) {
  std::vector<Field> fields;
  for (const auto &member : members) {
    Field field;
    field.name = member.first;
    if (parse_type(member.second, &field.type))
      fields.push_back(field);
  }
  return fields;
}

/* Names from paths may take one the records' generated functions use: a
 * path "/Item_new" beside a record "Item". */
void Inferrer::free_names() {
  Schema schema;
  for (const Seen &seen : records_) {
    schema.records.emplace_back();
    schema.records.back().name = seen.name;
    schema.records.back().fields = typed_fields(seen.fields);
  }
  for (const Call &call : calls_) {
    Operation op;
    op.name = call.name;
    op.arguments = typed_fields(call.arguments);
    Type result;
    if (parse_type(call.result, &result))
      op.result.push_back(result);
    schema.operations.push_back(op);
  }
  std::vector<std::string> names = free_operation_names(schema);
  for (size_t i = 0; i < calls_.size(); i++)
    calls_[i].name = names[i];
}

/* Any wire name as a JSON string, UTF-8 kept. */
std::string quoted(const std::string &text) {
  Json::StreamWriterBuilder builder;
  builder["emitUTF8"] = true;
  return Json::writeString(builder, Json::Value(text));
}

/* Members only ever seen null are left out: nothing tells their type. */
std::string typed_members(const Typed &members) {
  std::string text, sep;
  for (const auto &member : members)
    if (!member.second.empty()) {
      text += sep + quoted(member.first) + ": " + quoted(member.second);
      sep = ", ";
    }
  return "{" + text + "}";
}

std::string Inferrer::records_text() const {
  std::string text = "  \"records\": {";
  for (size_t i = 0; i < records_.size(); i++)
    text += std::string(i == 0 ? "" : ",") + "\n    " +
            quoted(records_[i].name) + ": " + typed_members(records_[i].fields);
  return text + (records_.empty() ? "}" : "\n  }");
}

std::string Inferrer::calls_text() const {
  std::string text = ",\n  \"operations\": {";
  for (size_t i = 0; i < calls_.size(); i++) {
    const Call &call = calls_[i];
    text += std::string(i == 0 ? "" : ",") + "\n    " + quoted(call.name) +
            ": {\"path\": " + quoted(call.path) +
            ", \"arguments\": " + typed_members(call.arguments);
    if (!call.result.empty())
      text += ", \"result\": " + quoted(call.result);
    if (!call.result.empty() && call.result_member != "result")
      text += ", \"result_member\": " + quoted(call.result_member);
    text += "}";
  }
  return text + "\n  }";
}

bool Inferrer::reply_file(const Json::Value &value) {
  typed_ = false;
  type_of(value);
  return typed_;
}

std::string Inferrer::schema() {
  free_names();
  return "{\n" + records_text() + (calls_.empty() ? "" : calls_text()) +
         "\n}\n";
}

/* The files an input names: itself, or a directory's .json files in name
 * order (recordings are numbered in arrival order). */
bool input_files(const std::string &input, std::vector<std::string> *files,
                 std::string *error) {
  namespace fs = std::filesystem;
  std::error_code failed;
  if (!fs::is_directory(input, failed)) {
    files->push_back(input);
    return true;
  }
  std::vector<std::string> found;
  for (fs::directory_iterator it(input, failed), end; !failed && it != end;
       it.increment(failed))
    if (it->path().extension() == ".json" &&
        it->path().filename().string()[0] != '.')
      found.push_back(it->path().string());
  if (failed) {
    *error = "cannot read " + input + ": " + failed.message() + "\n";
    return false;
  }
  std::sort(found.begin(), found.end());
  files->insert(files->end(), found.begin(), found.end());
  return true;
}

} // namespace

bool infer_schema(const std::vector<std::string> &inputs, std::string *schema,
                  std::string *error, std::string *warnings) {
  std::vector<std::string> files;
  for (const std::string &input : inputs)
    if (!input_files(input, &files, error))
      return false;
  Inferrer inferrer;
  size_t used = 0;
  for (const std::string &file : files) {
    Json::Value value;
    std::string text, why;
    velmora_tools::Recorded exchange;
    if (!read_text_file(file, &text, error)) {
      *error += "\n";
      return false;
    }
    if (!parse_json_text(file, text, &value, &why))
      *warnings += "warning: skipped " + why + "\n";
    else if (velmora_tools::read_recorded(value, {}, &exchange))
      inferrer.recording(exchange), used++;
    else if (inferrer.reply_file(value))
      used++;
    else
      *warnings +=
          "warning: skipped " + file + ": no recording and no typed value\n";
  }
  if (used == 0)
    *warnings += "warning: nothing to infer from: no recording and no typed "
                 "value in the input\n";
  *error = inferrer.conflicts;
  *schema = inferrer.schema();
  return error->empty();
}

} // namespace velmora_gen
