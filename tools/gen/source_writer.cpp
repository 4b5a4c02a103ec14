#include "source_helpers.h"
#include "writers.h"

namespace velmora_gen {

namespace {

std::string slot(const std::string &owner, const Field &field) {
  return "reinterpret_cast<void **>(&" + owner + "->" + field.name + ")";
}

/* A handle on a parameter's value: statements that make a temporary cell
 * for scalars and cell texts, and the expression (null when the parameter
 * is). */
std::pair<std::string, std::string> handle(const TypeInfo &info,
                                           const std::string &name) {
  std::string some = name + " == nullptr ? nullptr : &cell";
  if (info.access == Access::scalar)
    return {"  " + info.c_type + " cell{" + name + " == nullptr ? 0 : *" +
                name + "};\n",
            some};
  if (info.access == Access::cell_text)
    return {"  " + info.c_type + " cell{const_cast<char *>(" + name + ")};\n",
            some};
  return {"", "const_cast<" + info.c_type + " *>(" + name + ")"};
}

std::string guard(const std::string &type, const std::string &name,
                  const std::string &maker) {
  return "  std::unique_ptr<" + type + ", void (*)(void *)> " + name + "(" +
         maker + ", " + type + "_deleter);\n";
}

std::string operations_text(const Record &record, const Catalog &catalog) {
  const std::string &r = record.name;
  std::string reads, copies, writes, releases;
  for (const Field &field : record.fields) {
    TypeInfo info = catalog.info(field.type);
    reads += std::string(reads.empty() ? "" : " ||\n        ") +
             "!read_field(properties, \"" + field.name + "\", " + info.reader +
             ", " + slot("record", field) + ")";
    copies += " ||\n      !copy_field(" + info.copier + ", record->" +
              field.name + ", " + slot("copy", field) + ")";
    writes += "  if (record->" + field.name + " != nullptr)\n    " +
              info.serializer + "(record->" + field.name + ", properties[\"" +
              field.name + "\"]);\n";
    releases += "  " + info.deleter + "(record->" + field.name + ");\n";
  }
  std::string text =
      r + " *" + r + "_new(void) {\n  return static_cast<" + r +
      " *>(calloc(1, sizeof(" + r + ")));\n}\n\nvoid " + r +
      "_deleter(void *value) {\n  " + r + " *record = static_cast<" + r +
      " *>(value);\n  if (record == nullptr)\n    return;\n" + releases +
      "  free(record);\n}\n\nvoid *" + r +
      "_deserialize(const Json::Value &in) {\n" +
      guard(r, "record", r + "_new()") +
      "  try {\n    if (record == nullptr || !in.isObject())\n      return "
      "nullptr;\n";
  if (!reads.empty())
    text += "    const Json::Value &properties = in[\"__properties__\"];\n"
            "    if (" +
            reads + ")\n      return nullptr;\n";
  text += "  } catch (const std::exception &) {\n    return nullptr;\n  }\n"
          "  return record.release();\n}\n\nJson::Value *" +
          r + "_serialize(void *value, Json::Value &out) {\n  const " + r +
          " *record = static_cast<const " + r +
          " *>(value);\n  if (record == nullptr)\n    return &out;\n"
          "  out[\"__type__\"] = \"" +
          r + "\";\n  " + (writes.empty() ? "" : "Json::Value &properties = ") +
          "out[\"__properties__\"] = Json::Value(Json::objectValue);\n" +
          writes + "  return &out;\n}\n\nvoid " + r +
          "_copier(void **slot, void *value) {\n  const " + r +
          " *record = static_cast<const " + r + " *>(value);\n" +
          guard(r, "copy", "record == nullptr ? nullptr : " + r + "_new()") +
          "  *slot = nullptr;\n  if (copy == nullptr" + copies +
          ")\n    return;\n  *slot = copy.release();\n}\n";
  return text;
}

std::string getter_body(const Field &field, const TypeInfo &info) {
  const std::string member = "self->" + field.name;
  if (info.access == Access::scalar)
    return "  if (self == nullptr || " + member +
           " == nullptr)\n    return 0;\n  if (value != nullptr)\n    *value "
           "= " +
           member + "->value;\n  return 1;\n";
  if (info.access == Access::cell_text)
    return "  return self == nullptr || " + member +
           " == nullptr ? nullptr : " + member + "->value;\n";
  return "  return self == nullptr ? nullptr : " + member + ";\n";
}

std::string accessors_text(const Record &record, const Catalog &catalog) {
  std::string text;
  for (const Field &field : record.fields) {
    TypeInfo info = catalog.info(field.type);
    std::string getter = getter_declaration(record, field, info, "self");
    std::string setter =
        setter_declaration(record, field, info, "self", "value");
    auto cell = handle(info, "value");
    text += "\n" + getter + " {\n" + getter_body(field, info) + "}\n\n" +
            setter + " {\n  if (self == nullptr)\n    return;\n" + cell.first +
            "  set_field(" + slot("self", field) + ", " + cell.second + ", " +
            info.copier + ", " + info.deleter + ");\n}\n";
    if (!field.type.element.empty())
      text += "\n" + info.c_type + " *" + lower(record.name) + "_new" +
              capitalized(field.name) + "(void) {\n  return " +
              catalog.maker(field.type) + "();\n}\n";
  }
  return text;
}

std::string operation_text(const Operation &op, const Catalog &catalog) {
  std::string text = operation_declaration(op, catalog) + " {\n";
  if (!op.result.empty())
    text += "  if (result != nullptr)\n    *result = nullptr;\n";
  text += "  std::string body, reply;\n  try {\n"
          "    Json::Value request(Json::objectValue);\n";
  for (const Field &argument : op.arguments) {
    TypeInfo info = catalog.info(argument.type);
    auto cell = handle(info, argument.name);
    text += "    if (" + argument.name + " != nullptr) {\n  " + cell.first +
            "      " + info.serializer + "(" + cell.second + ", request[\"" +
            argument.name + "\"]);\n    }\n";
  }
  text += "    body = Json::writeString(Json::StreamWriterBuilder(), "
          "request);\n  } catch (const std::exception &) {\n    return -1;\n"
          "  }\n  int code = send_request(context, \"" +
          op.path + "\", body, &reply);\n";
  if (op.result.empty())
    return text + "  return code;\n}\n";
  TypeInfo info = catalog.info(op.result[0]);
  return text +
         "  if (code != 0)\n    return code;\n  void *value = nullptr;\n"
         "  code = read_reply(reply, \"" +
         op.result_member + "\", " + info.reader +
         ", &value);\n  if (result != nullptr)\n    *result = static_cast<" +
         info.c_type + " *>(value);\n  else\n    " + info.deleter +
         "(value);\n  return code;\n}\n";
}

} // namespace

std::string source_text(const Schema &schema, const Catalog &catalog,
                        const std::string &base) {
  std::string body;
  for (const Record &record : schema.records)
    body += "\n" + operations_text(record, catalog) +
            accessors_text(record, catalog);
  for (const Operation &op : schema.operations)
    body += "\n" + operation_text(op, catalog);
  return "/* Generated by velmora-gen from " + base +
         ".json: edit the schema, not this file. */\n#include \"" + base +
         ".h\"\n\n#include <cstdlib>\n#include <memory>\n#include <string>\n\n"
         "#include <json/json.h>\n\nnamespace {\n" +
         used_helpers(helper_chunks(catalog), body) + "\n} // namespace\n" +
         body;
}

} // namespace velmora_gen
