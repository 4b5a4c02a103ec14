#include "types.h"

namespace velmora_gen {

namespace {

struct Scalar {
  const char *name, *c_type;
};

const Scalar scalars[] = {{"Long", "int64_t"},   {"ULong", "uint64_t"},
                          {"Double", "double"},  {"Time", "int64_t"},
                          {"Date", "int64_t"},   {"Integer", "int32_t"},
                          {"Boolean", "int32_t"}};

bool native(const std::string &name) {
  return name == "Unicode" || name == "Integer" || name == "Boolean";
}

/* The four operations of a base type, or of a record named `name` in C. */
/* The library's scalars the fast road reads itself; the others it leaves to
 * their deserializers. */
std::string fast_reader(const std::string &name) {
  for (const char *scalar : {"Long", "ULong", "Double", "Time", "Date", "IP",
                             "Ciphered", "Integer", "Boolean"})
    if (name == scalar)
      return "velmora::detail::fast_" + lower(name);
  if (name == "Unicode")
    return "velmora::detail::fast_text";
  if (name == "Blob" || name == "Ordering" || name == "ListInfo")
    return "velmora::detail::fast_none";
  return name + "_fast";
}

TypeInfo base_info(const std::string &name) {
  TypeInfo info{name,
                name + "_deleter",
                name + "_copier",
                name + "_serialize",
                name + "_deserialize",
                "",
                fast_reader(name),
                name == "ULong" ? "Long" : name,
                Access::handle};
  for (const Scalar &scalar : scalars)
    if (name == scalar.name) {
      info.access = Access::scalar;
      info.scalar = scalar.c_type;
    }
  if (name == "Integer" || name == "Boolean") {
    std::string lower = name == "Integer" ? "integer" : "boolean";
    info.serializer = "velmora::detail::write_" + lower;
    info.reader = "velmora::detail::read_" + lower;
  } else if (name == "Unicode") {
    info = {"char",
            "string_deleter",
            "velmora::detail::copy_text",
            "velmora::detail::write_text",
            "string_deserialize",
            "",
            fast_reader(name),
            name,
            Access::text};
  } else if (name == "IP" || name == "Ciphered") {
    info.access = Access::cell_text;
  }
  return info;
}

} // namespace

std::string type_text(const Type &type) {
  if (type.element.empty())
    return type.name;
  return type.name + "<" + type_text(type.element[0]) + ">";
}

bool parse_type(const std::string &text, Type *type) {
  size_t open = text.find('<');
  std::string head = text.substr(0, open);
  type->element.clear();
  if (open == std::string::npos ||
      (head != "List" && head != "Dict" && head != "ResultSet")) {
    type->name = text;
    return !text.empty();
  }
  type->name = head;
  if (text.back() != '>')
    return false;
  type->element.assign(1, Type());
  return parse_type(text.substr(open + 1, text.size() - open - 2),
                    &type->element[0]);
}

Catalog::Catalog(const Schema &schema) {
  for (const Record &record : schema.records)
    records_[record.name] = record.c_name;
  for (const Record &record : schema.records)
    for (const Field &field : record.fields)
      add(field.type);
  for (const Operation &op : schema.operations) {
    for (const Field &argument : op.arguments)
      add(argument.type);
    for (const Type &result : op.result)
      add(result);
  }
}

void Catalog::add(const Type &type) {
  if (type.element.empty() || ids_.count(type_text(type)) != 0)
    return;
  add(type.element[0]);
  ids_[type_text(type)] = containers_.size() + 1;
  containers_.push_back(type);
}

bool helper_name(const std::string &name) {
  if (name == "velmora")
    return true;
  for (const char *prefix : {"make_c", "read_c", "copy_c", "fast_c"})
    if (name.compare(0, 6, prefix) == 0 && name.size() > 6 &&
        name.find_first_not_of("0123456789", 6) == std::string::npos)
      return true;
  return false;
}

std::string container_function(const Type &type, const char *verb) {
  if (type.name == "List")
    return std::string("list_") + verb;
  if (type.name == "Dict")
    return std::string("dict_") + verb;
  return std::string("result_set_") + verb;
}

std::string Catalog::maker(const Type &container) const {
  return "make_c" + std::to_string(ids_.at(type_text(container)));
}

TypeInfo Catalog::info(const Type &type) const {
  auto record = records_.find(type.name);
  if (type.element.empty() && record != records_.end()) {
    TypeInfo info = base_info(record->second);
    info.wire = type.name;
    return info;
  }
  if (type.element.empty())
    return base_info(type.name);
  std::string id = std::to_string(ids_.at(type_text(type)));
  TypeInfo info{
      "result_set_s", "result_set_del", "copy_c" + id, "", "read_c" + id, "",
      "fast_c" + id,  type.name,        Access::handle};
  if (type.name == "List")
    info.c_type = "list_s", info.deleter = "list_del";
  else if (type.name == "Dict")
    info.c_type = "dict_s", info.deleter = "dict_deleter";
  info.serializer = container_function(type, "serialize");
  return info;
}

std::vector<std::string> Catalog::element_ops(const Type &element) const {
  TypeInfo e = info(element);
  if (element.element.empty() && native(element.name))
    return {e.deleter, "nullptr", "nullptr", e.copier};
  return {e.deleter, e.reader, e.serializer, e.copier};
}

} // namespace velmora_gen
