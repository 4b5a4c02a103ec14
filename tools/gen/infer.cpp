#include "infer.h"

#include <utility>
#include <vector>

#include <json/writer.h>

#include "json_order.h"

namespace velmora_gen {

namespace {

struct Seen {
  std::string name;
  std::vector<std::pair<std::string, std::string>> fields; /* name, type */
};

class Inferrer {
public:
  /* The type of a value; "" when it does not tell (null, plain numbers
   * and objects without "__type__", whose members are still searched). */
  std::string type_of(const Json::Value &value);
  std::string schema() const;
  std::string conflicts;

private:
  std::string container(const std::string &name, const Json::Value &value);
  void record(const std::string &name, const Json::Value &properties);
  void note(Seen &record, const std::string &field, const std::string &type);
  std::vector<Seen> records_;
};

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
  if (name == "List" || name == "Dict" || name == "ResultSet")
    return container(name, value);
  if (value["__properties__"].isObject() && name != "Ordering" &&
      name != "ListInfo")
    record(name, value["__properties__"]);
  return name;
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
  for (const std::string &field : ordered_members(properties)) {
    std::string type = type_of(properties[field]);
    note(records_[at], field, type);
  }
}

void Inferrer::note(Seen &record, const std::string &field,
                    const std::string &type) {
  for (auto &seen : record.fields)
    if (seen.first == field) {
      if (seen.second.empty())
        seen.second = type;
      else if (!type.empty() && type != seen.second)
        conflicts.append("record ")
            .append(record.name)
            .append(", field ")
            .append(field)
            .append(": seen as ")
            .append(seen.second)
            .append(" and as ")
            .append(type)
            .append("\n");
      return;
    }
  record.fields.emplace_back(field, type);
}

/* Any wire name as a JSON string, UTF-8 kept. */
std::string quoted(const std::string &text) {
  Json::StreamWriterBuilder builder;
  builder["emitUTF8"] = true;
  return Json::writeString(builder, Json::Value(text));
}

/* Fields only ever seen null are left out: nothing tells their type. */
std::string Inferrer::schema() const {
  std::string text = "{\n  \"records\": {";
  for (size_t i = 0; i < records_.size(); i++) {
    text += std::string(i == 0 ? "" : ",") + "\n    " +
            quoted(records_[i].name) + ": {";
    std::string sep;
    for (const auto &field : records_[i].fields)
      if (!field.second.empty()) {
        text += sep + quoted(field.first) + ": " + quoted(field.second);
        sep = ", ";
      }
    text += "}";
  }
  return text + (records_.empty() ? "}\n}\n" : "\n  }\n}\n");
}

} // namespace

bool infer_schema(const std::string &file, std::string *schema,
                  std::string *error) {
  Json::Value reply;
  if (!read_json_file(file, &reply, error)) {
    *error += "\n";
    return false;
  }
  Inferrer inferrer;
  inferrer.type_of(reply);
  *error = inferrer.conflicts;
  *schema = inferrer.schema();
  return error->empty();
}

} // namespace velmora_gen
