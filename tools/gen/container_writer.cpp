#include "container_writer.h"

#include <set>

#include "escapes.h"
#include "layout.h"

namespace velmora_gen {

namespace {

/* The types a copy is made of: a record's field or a container's element
 * of that type, by type text; gathered once, as a lookup per container
 * over every field grows as the square of the schema. */
std::set<std::string> copied_types(const Schema &schema,
                                   const Catalog &catalog) {
  std::set<std::string> copied;
  for (const Record &record : schema.records)
    for (const Field &field : record.fields)
      copied.insert(type_text(field.type));
  for (const Type &container : catalog.containers())
    copied.insert(type_text(container.element[0]));
  return copied;
}

std::string maker_text(const Catalog &catalog, const Type &type) {
  TypeInfo info = catalog.info(type);
  std::vector<std::string> arguments{
      c_literal(catalog.info(type.element[0]).wire)};
  for (const std::string &op : catalog.element_ops(type.element[0]))
    arguments.push_back(op);
  return "/* " + type_text(type) + " */\n" + info.c_type + " *" +
         catalog.maker(type) + "(void) {\n" +
         call("  ", "return " + container_function(type, "new") + "(",
              arguments, ");") +
         "}\n";
}

std::string reader_text(const Catalog &catalog, const Type &type) {
  TypeInfo info = catalog.info(type);
  return "void *" + info.reader + "(const Json::Value &in) {\n" +
         call("  ", "return velmora::detail::read_whole(",
              {catalog.maker(type) + "()", "in"}, ");") +
         "}\n";
}

std::string copier_text(const Catalog &catalog, const Type &type) {
  TypeInfo info = catalog.info(type);
  return "void " + info.copier + "(void **slot, void *value) {\n" +
         call("  ", "velmora::detail::copy_whole(",
              {"slot", "static_cast<" + info.c_type + " *>(value)"}, ");") +
         "}\n";
}

std::string fast_text(const Catalog &catalog, const Type &type) {
  TypeInfo info = catalog.info(type);
  TypeInfo element = catalog.info(type.element[0]);
  return "velmora::detail::Read " + info.fast +
         "(velmora::detail::Cursor &c, void **out) {\n" +
         call("  ", "return velmora::detail::read_container(",
              {"c", c_literal(element.wire) + "sv", element.fast,
               catalog.maker(type), info.deleter, info.reader, "out"},
              ");") +
         "}\n";
}

} // namespace

std::string containers_text(const Schema &schema, const Catalog &catalog) {
  std::set<std::string> copied = copied_types(schema, catalog);
  std::string text;
  for (const Type &type : catalog.containers()) {
    text += "\n" + maker_text(catalog, type) + "\n" +
            reader_text(catalog, type) + "\n";
    if (copied.count(type_text(type)) != 0)
      text += copier_text(catalog, type) + "\n";
    text += fast_text(catalog, type);
  }
  return text;
}

} // namespace velmora_gen
