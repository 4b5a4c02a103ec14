#include "writers.h"

#include <cctype>
#include <set>

#include "escapes.h"
#include "layout.h"
#include "names.h"

namespace velmora_gen {

namespace {

const char *const preamble =
    " *\n"
    " * Each record R has R_new, R_deleter, R_deserialize, R_serialize and\n"
    " * R_copier (the operation set containers hold) and one getter and one\n"
    " * setter per field, prefixed with the record's name in lower case. A "
    "null\n"
    " * member is an absent field. Getters lend: a number field gives 1 and\n"
    " * stores its value through the out-parameter (when not null), or 0 when\n"
    " * absent; a text gives the record's own text, any other field its own\n"
    " * handle, null when absent. Setters copy: a null pointer makes the "
    "field\n"
    " * absent; when memory runs out the record stays as it was. Readers and\n"
    " * makers give null when memory runs out or a member has the wrong "
    "kind.\n"
    " * Members a record reads that no field names are kept as they came,\n"
    " * copied with it and written back after its fields; r_unknownMembers\n"
    " * lends them. Names are sent and read as the schema writes them; a\n"
    " * comment gives the wire name where the C name differs. A call that\n"
    " * takes one ListInfo and gives a ResultSet also has call_each, which\n"
    " * walks the whole collection page by page, one page held at a time.\n"
    " * A walk ends at the collection's total, after an empty or short page,\n"
    " * when the callback stops it, or at a call that fails; items added or\n"
    " * removed while it runs may be handed over twice or skipped.\n"
    " */\n";

std::string guard(const std::string &base) {
  std::string text = "VELMORA_GENERATED_";
  for (char c : base)
    text += isalnum(static_cast<unsigned char>(c)) != 0
                ? static_cast<char>(toupper(static_cast<unsigned char>(c)))
                : '_';
  return text + "_H";
}

std::string reader_comment(const std::string &type) {
  return comment("",
                 "A new " + type +
                     " read from `length` bytes of JSON text: what its "
                     "deserializer gives for jsoncpp's tree of the text, read "
                     "straight from the text; null when it is not JSON or "
                     "cannot be read.",
                 "/**");
}

/* A member's, record's or argument's documentation: its doc, and its
 * wire name where the C name differs. */
std::string about(const std::string &doc, const std::string &wire,
                  const std::string &c_name) {
  if (wire == c_name)
    return doc;
  return doc + (doc.empty() ? "" : " ") + "Wire name: " + comment_quoted(wire) +
         ".";
}

std::string member_text(const Field &field, const std::string &c_name,
                        const Catalog &catalog) {
  std::string text = about(field.doc, field.name, c_name);
  if (!field.type.element.empty())
    text = type_text(field.type) + (text.empty() ? "" : ". ") + text;
  return (text.empty() ? "" : comment("  ", text, "/**")) + "  " +
         catalog.info(field.type).c_type + " *" + c_name + ";\n";
}

std::string accessors_text(const Record &record, const Names &names,
                           const Catalog &catalog) {
  const std::string &r = names.record(record);
  std::string text;
  for (const Field &field : record.fields) {
    const std::string &f = names.field(record, field);
    TypeInfo info = catalog.info(field.type);
    std::string value = f == "self" ? "value" : f;
    std::string doc = field.doc.empty() ? "" : comment("", field.doc, "/**");
    text += doc + getter_declaration(r, f, info, "self", ";") + doc +
            setter_declaration(r, f, info, "self", value, ";");
    if (!field.type.element.empty())
      text += "/** A new empty " + type_text(field.type) + ". */\n" +
              new_declaration(r, f, info, ";");
  }
  return text;
}

std::string record_text(const Record &record, const Names &names,
                        const Catalog &catalog) {
  const std::string &r = names.record(record);
  return "/* ---- " + r + " */\n\n" + struct_text(record, names, catalog) +
         "\n" + record_functions(r) +
         "/** Lends the members read that no field names, written back after "
         "the\n * fields; null when none. */\n" +
         unknown_declaration(r, ";") + reader_comment(r) +
         text_reader_declaration(r, r + "_read", ";") +
         accessors_text(record, names, catalog) + "\n";
}

std::string parameter(const TypeInfo &info, const std::string &name) {
  if (info.access == Access::scalar)
    return "const " + info.scalar + " *" + name;
  if (info.access == Access::handle)
    return "const " + info.c_type + " *" + name;
  return "const char *" + name;
}

std::string operation_comment(const Operation &op, const Names &names) {
  std::string text = op.doc.empty() ? "" : op.doc + " ";
  text += "POST " + op.path + ". ";
  for (const Field &argument : op.arguments) {
    const std::string &c_name = names.argument(op, argument);
    if (!argument.doc.empty())
      text += c_name + ": " + argument.doc + " ";
    if (argument.name != c_name)
      text += c_name + " is sent as " + comment_quoted(argument.name) + ". ";
  }
  if (!op.result.empty())
    text += "On success the reply's " + comment_quoted(op.result_member) +
            " becomes *result, the caller's. ";
  text += "Returns send_request's code, or -1 when the request cannot be "
          "built";
  return comment("",
                 text + (op.result.empty() ? "."
                                           : ", or -4 when the reply is not "
                                             "JSON or that member cannot be "
                                             "read."),
                 "/**");
}

std::string each_comment(const Operation &op, const Names &names) {
  EachNames e = each_names(op, names);
  const std::string &query = names.argument(op, *page_argument(op));
  return comment(
      "",
      "Walks the whole collection of " + op.name + ", page by page: calls " +
          op.name + " with *" + query +
          "'s order and search (null: none) from its offset on, with " +
          e.page_size +
          " as each page's limit (0 asks for the rest), and hands each "
          "element to " +
          e.each + "(element, " + e.data + "), lent for that call. *" + query +
          " is not changed and must not change while the walk runs. The walk "
          "ends after an empty page or one short of " +
          e.page_size + ", at the smallest total a page gave, when " + e.each +
          " returns non-zero, or at a call's code other than 0, which it "
          "returns (-1 also when " +
          e.page_size + " is negative or " + e.each + " null). *" + e.handed +
          " (when not null) counts the elements handed over: the offset plus "
          "*" +
          e.handed +
          " resumes. Items added or removed during a walk shift the offsets, "
          "so that one may come twice or be missed.",
      "/**");
}

} // namespace

std::string struct_text(const Record &record, const Names &names,
                        const Catalog &catalog) {
  const std::string &r = names.record(record);
  std::string doc = about(record.doc, record.name, r);
  std::string text =
      (doc.empty() ? "" : comment("", doc, "/**")) + "struct " + r + " {\n";
  for (const Field &field : record.fields)
    text += member_text(field, names.field(record, field), catalog);
  return text + "  /** Members read that no field names; null when none. */\n"
                "  Json::Value *unknown_members;\n};\n";
}

std::string record_functions(const std::string &r) {
  return "/** Every field absent; null when memory runs out. */\n" +
         declaration(r + " *", r + "_new(", {"void"}, ");") +
         declaration("void", r + "_deleter(", {"void *self"}, ");") +
         declaration("void *", r + "_deserialize(", {"const Json::Value &in"},
                     ");") +
         declaration("Json::Value *", r + "_serialize(",
                     {"void *self", "Json::Value &out"}, ");") +
         declaration("void", r + "_copier(", {"void **slot", "void *self"},
                     ");");
}

std::string getter_declaration(const std::string &record,
                               const std::string &field, const TypeInfo &info,
                               const std::string &self_name,
                               const std::string &tail) {
  std::string name = accessor(record, "_get", field);
  std::string self = "const " + record + " *" + self_name;
  if (info.access == Access::scalar)
    return declaration("int32_t", name + "(", {self, info.scalar + " *value"},
                       ")" + tail);
  if (info.access == Access::handle)
    return declaration(info.c_type + " *", name + "(", {self}, ")" + tail);
  return declaration("const char *", name + "(", {self}, ")" + tail);
}

std::string setter_declaration(const std::string &record,
                               const std::string &field, const TypeInfo &info,
                               const std::string &self,
                               const std::string &value,
                               const std::string &tail) {
  return declaration("void", accessor(record, "_set", field) + "(",
                     {record + " *" + self, parameter(info, value)},
                     ")" + tail);
}

std::string new_declaration(const std::string &record, const std::string &field,
                            const TypeInfo &info, const std::string &tail) {
  return declaration(info.c_type + " *", accessor(record, "_new", field) + "(",
                     {"void"}, ")" + tail);
}

std::string unknown_declaration(const std::string &record,
                                const std::string &tail) {
  return declaration("const Json::Value *", unknown_accessor(record) + "(",
                     {"const " + record + " *self"}, ")" + tail);
}

std::string fast_declaration(const std::string &record, const std::string &tail,
                             bool shared) {
  std::string hidden = shared ? "[[gnu::visibility(\"hidden\")]] " : "";
  return declaration(hidden + "velmora::detail::Read", record + "_fast(",
                     {"velmora::detail::Cursor &c", "void **out"}, ")" + tail);
}

std::string text_reader_declaration(const std::string &c_type,
                                    const std::string &name,
                                    const std::string &tail) {
  return declaration(c_type + " *", name + "(",
                     {"const char *json", "size_t length"}, ")" + tail);
}

std::string operation_declaration(const Operation &op, const Names &names,
                                  const Catalog &catalog,
                                  const std::string &tail) {
  std::vector<std::string> parameters{"client_context_s *context"};
  for (const Field &argument : op.arguments)
    parameters.push_back(
        parameter(catalog.info(argument.type), names.argument(op, argument)));
  if (!op.result.empty())
    parameters.push_back(catalog.info(op.result[0]).c_type + " **result");
  return declaration("int", op.name + "(", parameters, ")" + tail);
}

EachNames each_names(const Operation &op, const Names &names) {
  std::set<std::string> taken;
  for (const Field &argument : op.arguments)
    taken.insert(names.argument(op, argument));
  auto free = [&](const std::string &base) {
    std::string name = first_free(
        base, [&](const std::string &n) { return taken.count(n) != 0; });
    taken.insert(name);
    return name;
  };
  EachNames e;
  e.page_size = free("page_size"), e.each = free("each");
  e.data = free("each_data"), e.handed = free("handed");
  e.page = free("page");
  return e;
}

std::string each_declaration(const Operation &op, const Names &names,
                             const Catalog &catalog, const std::string &tail) {
  EachNames e = each_names(op, names);
  std::vector<std::string> parameters{"client_context_s *context"};
  for (const Field &argument : op.arguments)
    parameters.push_back(
        parameter(catalog.info(argument.type), names.argument(op, argument)));
  std::string element = catalog.info(op.result[0].element[0]).c_type;
  parameters.insert(parameters.end(),
                    {"int32_t " + e.page_size,
                     "int (*" + e.each + ")(" + element + " *, void *)",
                     "void *" + e.data, "int64_t *" + e.handed});
  return declaration("int", op.name + "_each(", parameters, ")" + tail);
}

std::string header_text(const Schema &schema, const Names &names,
                        const Catalog &catalog, const std::string &base) {
  std::string top = comment("", "Generated by velmora-gen from " + base +
                                    ".json: edit the schema, not this file.");
  std::string text = top.substr(0, top.size() - 4) + "\n" + preamble +
                     "#ifndef " + guard(base) + "\n#define " + guard(base) +
                     "\n\n#include <cstddef>\n#include <cstdint>\n\n#include "
                     "<velmora/velmora.h>\n\n";
  for (const Record &record : schema.records)
    text += "struct " + names.record(record) + ";\n";
  text += "\n";
  for (const Record &record : schema.records)
    text += record_text(record, names, catalog);
  if (!catalog.containers().empty())
    text += "/* ---- Containers read from JSON text */\n\n";
  for (const Type &type : catalog.containers())
    text += reader_comment(type_text(type)) +
            text_reader_declaration(catalog.info(type).c_type,
                                    names.reader(type), ";");
  if (!catalog.containers().empty())
    text += "\n";
  for (const Operation &op : schema.operations) {
    text += operation_comment(op, names) +
            operation_declaration(op, names, catalog, ";") + "\n";
    if (page_argument(op) != nullptr)
      text += each_comment(op, names) +
              each_declaration(op, names, catalog, ";") + "\n";
  }
  return text + "#endif\n";
}

} // namespace velmora_gen
