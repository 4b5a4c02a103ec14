#include <algorithm>

#include "container_writer.h"
#include "escapes.h"
#include "layout.h"
#include "names.h"
#include "parts.h"
#include "writers.h"

namespace velmora_gen {

namespace {

/* A wire name as the helpers take it: a std::string_view, whole even
 * when the name holds a NUL. */
std::string wire(const std::string &name) {
  return c_literal(name) + "sv";
}

std::string deleter_text(const Record &record, const Names &names,
                         const Catalog &catalog) {
  const std::string &r = names.record(record);
  std::string text =
      declaration("void", r + "_deleter(", {"void *value"}, ") {") +
      assignment("  ", "auto *record", "static_cast<" + r + " *>(value);") +
      "  if (record == nullptr)\n    return;\n";
  for (const Field &field : record.fields)
    text += call("  ", catalog.info(field.type).deleter + "(",
                 {"record->" + names.field(record, field)}, ");");
  return text + "  delete record->unknown_members;\n  free(record);\n}\n";
}

std::string reader_text(const Record &record, const Names &names,
                        const Catalog &catalog) {
  const std::string &r = names.record(record);
  std::string text =
      declaration("void *", r + "_deserialize(", {"const Json::Value &in"},
                  ") {") +
      call("  ", "velmora::detail::Owned<" + r + "> record(",
           {r + "_new()", r + "_deleter"}, ");") +
      "  try {\n    if (record == nullptr || !in.isObject())\n"
      "      return nullptr;\n"
      "    const Json::Value &properties = in[\"__properties__\"];\n";
  std::vector<std::string> keep{"properties", "&record->unknown_members"};
  for (const Field &field : record.fields) {
    text +=
        call("    ", "if (!velmora::detail::read_field(",
             {"properties", wire(field.name), catalog.info(field.type).reader,
              "&record->" + names.field(record, field)},
             "))") +
        "      return nullptr;\n";
    keep.push_back(wire(field.name));
  }
  return text + call("    ", "velmora::detail::keep_unknown(", keep, ");") +
         "  } catch (const std::exception &) {\n    return nullptr;\n"
         "  }\n  return record.release();\n}\n";
}

std::string writer_text(const Record &record, const Names &names,
                        const Catalog &catalog) {
  const std::string &r = names.record(record);
  std::string text =
      declaration("Json::Value *", r + "_serialize(",
                  {"void *value", "Json::Value &out"}, ") {") +
      assignment("  ", "const auto *record",
                 "static_cast<const " + r + " *>(value);") +
      "  if (record == nullptr)\n    return &out;\n" +
      assignment("  ", "out[\"__type__\"]", c_literal(record.name) + ";") +
      "  Json::Value &properties = out[\"__properties__\"];\n"
      "  properties = Json::Value(Json::objectValue);\n";
  for (const Field &field : record.fields)
    text += call("  ", "velmora::detail::write_field(",
                 {"properties", wire(field.name),
                  catalog.info(field.type).serializer,
                  "record->" + names.field(record, field)},
                 ");");
  return text +
         "  velmora::detail::write_unknown(properties, "
         "record->unknown_members);\n" +
         "  return &out;\n}\n";
}

std::string copier_text(const Record &record, const Names &names,
                        const Catalog &catalog) {
  const std::string &r = names.record(record);
  std::string text =
      declaration("void", r + "_copier(", {"void **slot", "void *value"},
                  ") {") +
      assignment("  ", "const auto *record",
                 "static_cast<const " + r + " *>(value);") +
      "  *slot = nullptr;\n  if (record == nullptr)\n    return;\n" +
      call("  ", "velmora::detail::Owned<" + r + "> copy(",
           {r + "_new()", r + "_deleter"}, ");") +
      "  if (copy == nullptr)\n    return;\n";
  for (const Field &field : record.fields)
    text += call("  ", "if (!velmora::detail::copy_field(",
                 {catalog.info(field.type).copier,
                  "record->" + names.field(record, field),
                  "&copy->" + names.field(record, field)},
                 "))") +
            "    return;\n";
  return text +
         call("  ", "if (!velmora::detail::copy_unknown(",
              {"record->unknown_members", "&copy->unknown_members"}, "))") +
         "    return;\n  *slot = copy.release();\n}\n";
}

std::string operations_text(const Record &record, const Names &names,
                            const Catalog &catalog) {
  const std::string &r = names.record(record);
  return declaration(r + " *", r + "_new(", {"void"}, ") {") +
         "  return velmora::detail::new_record<" + r + ">();\n}\n\n" +
         deleter_text(record, names, catalog) + "\n" +
         reader_text(record, names, catalog) + "\n" +
         writer_text(record, names, catalog) + "\n" +
         copier_text(record, names, catalog);
}

std::string getter_body(const std::string &c_name, const TypeInfo &info) {
  const std::string member = "self->" + c_name;
  if (info.access == Access::scalar)
    return "  if (self == nullptr)\n    return 0;\n" +
           call("  ", "return velmora::detail::get_number(", {member, "value"},
                ");");
  std::string text = "  if (self == nullptr)\n    return nullptr;\n";
  if (info.access == Access::cell_text)
    return text +
           call("  ", "return velmora::detail::cell_text(", {member}, ");");
  return text + "  return " + member + ";\n";
}

std::string setter_body(const std::string &c_name, const TypeInfo &info) {
  std::string set = "velmora::detail::set_field(";
  if (info.access == Access::scalar)
    set = "velmora::detail::set_number(";
  else if (info.access == Access::cell_text)
    set = "velmora::detail::set_in_cell(";
  return "  if (self != nullptr)\n" +
         call("    ", set,
              {"&self->" + c_name, "value", info.copier, info.deleter}, ");");
}

std::string accessors_text(const Record &record, const Names &names,
                           const Catalog &catalog) {
  const std::string &r = names.record(record);
  std::string text = "\n" + unknown_declaration(r, " {") +
                     "  return self == nullptr ? nullptr : "
                     "self->unknown_members;\n}\n";
  for (const Field &field : record.fields) {
    const std::string &f = names.field(record, field);
    TypeInfo info = catalog.info(field.type);
    text += "\n" + getter_declaration(r, f, info, "self", " {") +
            getter_body(f, info) + "}\n\n" +
            setter_declaration(r, f, info, "self", "value", " {") +
            setter_body(f, info) + "}\n";
    if (!field.type.element.empty())
      text += "\n" + new_declaration(r, f, info, " {") +
              call("  ", "return ", {catalog.maker(field.type) + "()"}, ";") +
              "}\n";
  }
  return text;
}

std::string argument_text(const Field &argument, const std::string &c_name,
                          const TypeInfo &info) {
  std::string write = "velmora::detail::write_field(";
  if (info.access == Access::scalar)
    write = "velmora::detail::write_number<" + info.c_type + ">(";
  else if (info.access == Access::cell_text)
    write = "velmora::detail::write_in_cell<" + info.c_type + ">(";
  return call("    ", write,
              {"request", wire(argument.name), info.serializer, c_name}, ");");
}

std::string operation_text(const Operation &op, const Names &names,
                           const Catalog &catalog) {
  std::string text = operation_declaration(op, names, catalog, " {");
  if (!op.result.empty())
    text += "  if (result != nullptr)\n    *result = nullptr;\n";
  text += "  std::string body, reply;\n  try {\n"
          "    Json::Value request(Json::objectValue);\n";
  for (const Field &argument : op.arguments)
    text += argument_text(argument, names.argument(op, argument),
                          catalog.info(argument.type));
  text += "    body = velmora::detail::request_text(request);\n"
          "  } catch (const std::exception &) {\n    return -1;\n  }\n" +
          call("  ", "int code = send_request(",
               {"context", c_literal(op.path), "body", "&reply"}, ");");
  if (op.result.empty())
    return text + "  return code;\n}\n";
  TypeInfo info = catalog.info(op.result[0]);
  return text + "  if (code != 0)\n    return code;\n" +
         call("  ", "return velmora::detail::read_reply(",
              {"reply", wire(op.result_member), info.fast, info.reader,
               info.deleter, "result"},
              ");") +
         "}\n";
}

/* op_each: the operation's call, one page at a time, under the runtime's
 * walk. */
std::string each_text(const Operation &op, const Names &names,
                      const Catalog &catalog) {
  EachNames e = each_names(op, names);
  const Field *query = page_argument(op);
  std::vector<std::string> arguments{"context"};
  for (const Field &argument : op.arguments)
    arguments.push_back(&argument == query ? e.page
                                           : names.argument(op, argument));
  arguments.push_back("result");
  return each_declaration(op, names, catalog, " {") +
         "  auto request = [&](const ListInfo *" + e.page +
         ", result_set_s **result) {\n" +
         call("    ", "return " + op.name + "(", arguments, ");") + "  };\n" +
         call("  ", "return velmora::detail::walk_result_sets(",
              {names.argument(op, *query), e.page_size, e.each, e.data,
               e.handed, "request"},
              ");") +
         "}\n";
}

/* The compact reader of a field and the text before its value: its key
 * and a scalar envelope's opening, as jsoncpp writes them; false for a
 * type read otherwise or a key jsoncpp would escape. */
bool compact_field(const Field &field, std::string *before,
                   std::string *reader) {
  for (unsigned char byte : field.name)
    if (byte < 0x20 || byte > 0x7e || byte == '"' || byte == '\\')
      return false;
  const BaseType *base = base_type(field.type.name);
  if (base == nullptr || base->reader[0] == '\0')
    return false;
  *before = "\"" + field.name + "\":";
  if (!base->native)
    *before +=
        "{\"__type__\":\"" + std::string(base->wire) + "\",\"__value__\":";
  *reader = std::string("velmora::detail::compact_") + base->reader;
  return true;
}

/* R_compact: a record's fields in the order jsoncpp writes them (bytes of
 * the keys ascending), when each is a scalar; empty otherwise. */
std::string compact_table(const Record &record, const Names &names) {
  std::vector<const Field *> order;
  for (const Field &field : record.fields)
    order.push_back(&field);
  std::sort(order.begin(), order.end(),
            [](const Field *a, const Field *b) { return a->name < b->name; });
  std::string rows;
  for (const Field *field : order) {
    std::string before, reader;
    if (!compact_field(*field, &before, &reader))
      return "";
    rows += call("    ", "{",
                 {c_literal((rows.empty() ? "" : ",") + before) + "sv", reader,
                  "offsetof(" + names.record(record) + ", " +
                      names.field(record, *field) + ")"},
                 "},");
  }
  if (rows.empty())
    return "";
  return "const velmora::detail::CompactField " + names.record(record) +
         "_compact[] = {\n" + rows + "};\n";
}

/* R_fast: a record read from JSON text, by R_fields and R_compact. */
std::string fast_definition(const Record &record, const Names &names) {
  const std::string &r = names.record(record);
  std::vector<std::string> arguments = {
      "c",           r + "_new",         r + "_deleter",
      r + "_fields", r + "_deserialize", "out"};
  if (!compact_table(record, names).empty())
    arguments.insert(arguments.end() - 2, r + "_compact");
  return fast_declaration(r, " {") +
         call("  ", "return velmora::detail::read_record(", arguments, ");") +
         "}\n";
}

/* R_fields and R_compact: a record's fields read from JSON text. */
std::string fields_text(const Record &record, const Names &names,
                        const Catalog &catalog) {
  const std::string &r = names.record(record);
  std::string compact = compact_table(record, names);
  std::string text = declaration(
      "velmora::detail::Read", r + "_fields(",
      {"velmora::detail::Cursor &c", "std::string_view name", r + " *record"},
      ") {");
  for (const Field &field : record.fields) {
    TypeInfo info = catalog.info(field.type);
    text += "  if (name == " + wire(field.name) + ")\n" +
            call("    ", "return velmora::detail::field(",
                 {"c", info.fast, info.reader,
                  "&record->" + names.field(record, field)},
                 ");");
  }
  return text +
         call("  ", "return velmora::detail::unknown(",
              {"c", "name", "&record->unknown_members"}, ");") +
         "}\n" + (compact.empty() ? "" : "\n" + compact);
}

/* R_read, or a container type's reader of JSON text. */
std::string text_reader(const std::string &c_type, const std::string &name,
                        const TypeInfo &info) {
  return text_reader_declaration(c_type, name, " {") +
         call("  ", "return velmora::detail::read_text<" + c_type + ">(",
              {"json", "length", info.fast, info.reader, info.deleter}, ");") +
         "}\n";
}

/* The public functions of `schema`'s records, of the container types
 * `readers` (their text readers) and of its operations. */
std::string definitions_text(const Schema &schema,
                             const std::vector<Type> &readers,
                             const Names &names, const Catalog &catalog) {
  std::string body;
  for (const Record &record : schema.records)
    body += "\n" + operations_text(record, names, catalog) +
            accessors_text(record, names, catalog) + "\n" +
            text_reader(names.record(record), names.record(record) + "_read",
                        catalog.info(Type{record.name, {}}));
  for (const Type &type : readers) {
    TypeInfo info = catalog.info(type);
    body += "\n" + text_reader(info.c_type, names.reader(type), info);
  }
  for (const Operation &op : schema.operations) {
    body += "\n" + operation_text(op, names, catalog);
    if (page_argument(op) != nullptr)
      body += "\n" + each_text(op, names, catalog);
  }
  return body;
}

/* R_fields and R_compact of each record, the file's own. */
std::string fields_texts(const Schema &schema, const Names &names,
                         const Catalog &catalog) {
  std::string text;
  for (const Record &record : schema.records)
    text += "\n" + fields_text(record, names, catalog);
  return text;
}

/* After <cstddef> (and <cstdint>), as clang-format sorts them. */
const char *const includes =
    "#include <cstdlib>\n#include <string>\n"
    "#include <string_view>\n\n#include <json/json.h>\n"
    "#include <velmora/generated.h>\n";

/* What a file of several takes from the header: the structs of its own
 * records, and the functions of those and of the records it calls, with
 * their fast readers, which the files share and a program does not
 * export. */
std::string part_declarations(const Part &part, const Names &names,
                              const Catalog &catalog) {
  std::vector<std::string> records;
  for (const Record &record : part.schema.records)
    records.push_back(names.record(record));
  for (const std::string &called : part.called)
    records.push_back(names.records.at(called).c_name);
  if (records.empty())
    return "";
  std::string text, functions;
  for (const std::string &r : records) {
    text += "struct " + r + ";\n";
    functions += record_functions(r) + fast_declaration(r, ";", true);
  }
  text += "\n";
  for (const Record &record : part.schema.records)
    text += struct_text(record, names, catalog) + "\n";
  return text + functions;
}

/* File `index` of `count`: its records, its operations and the container
 * types it needs, all it calls in other files declared at its top. */
std::string part_text(const Part &part, const Names &names,
                      const std::string &base, size_t index, size_t count) {
  std::vector<Type> types = part.owned;
  for (const Record &record : part.schema.records)
    for (const Field &field : record.fields)
      types.push_back(field.type);
  for (const Operation &op : part.schema.operations)
    types.insert(types.end(), op.result.begin(), op.result.end());
  Catalog catalog(types, names);
  std::string declarations = part_declarations(part, names, catalog);
  std::string local = containers_text(part.schema, catalog) +
                      fields_texts(part.schema, names, catalog);
  std::string fast;
  for (const Record &record : part.schema.records)
    fast += "\n" + fast_definition(record, names);
  return source_banner(base, index, count) +
         "#include <cstddef>\n#include <cstdint>\n" + includes +
         "#include <velmora/velmora.h>\n\n"
         "using namespace std::string_view_literals;\n" +
         (declarations.empty() ? "" : "\n" + declarations) +
         (local.empty() ? ""
                        : "\nnamespace {\n" + local + "\n} // namespace\n") +
         fast + definitions_text(part.schema, part.owned, names, catalog);
}

} // namespace

std::string source_text(const Schema &schema, const Names &names,
                        const Catalog &catalog, const std::string &base) {
  std::string declarations, fast;
  for (const Record &record : schema.records) {
    declarations += fast_declaration(names.record(record), ";");
    fast += "\n" + fields_text(record, names, catalog) + "\n" +
            fast_definition(record, names);
  }
  return source_banner(base, 0, 1) + "#include \"" + base +
         ".h\"\n\n#include <cstddef>\n" + includes +
         "\nusing namespace std::string_view_literals;\n\nnamespace {\n\n" +
         declarations + containers_text(schema, catalog) + fast +
         "\n} // namespace\n" +
         definitions_text(schema, catalog.containers(), names, catalog);
}

std::vector<std::string> source_texts(const Schema &schema, const Names &names,
                                      const Catalog &catalog,
                                      const std::string &base, size_t count) {
  if (count <= 1)
    return {source_text(schema, names, catalog, base)};
  std::vector<std::string> texts;
  std::vector<Part> parts = split_schema(schema, catalog, count);
  for (size_t i = 0; i < parts.size(); i++)
    texts.push_back(part_text(parts[i], names, base, i, count));
  return texts;
}

} // namespace velmora_gen
