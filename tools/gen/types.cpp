#include "types.h"

#include <algorithm>
#include <cctype>

#include "names.h"

namespace velmora_gen {

namespace {

const BaseType base_types[] = {
    {"Long", "Long", Access::scalar, "int64_t", "long", false},
    {"ULong", "Long", Access::scalar, "uint64_t", "ulong", false},
    {"Double", "Double", Access::scalar, "double", "double", false},
    {"Time", "Time", Access::scalar, "int64_t", "time", false},
    {"Date", "Date", Access::scalar, "int64_t", "date", false},
    {"Integer", "Integer", Access::scalar, "int32_t", "integer", true},
    {"Boolean", "Boolean", Access::scalar, "int32_t", "boolean", true},
    {"Unicode", "Unicode", Access::text, "", "text", true},
    {"IP", "IP", Access::cell_text, "", "ip", false},
    {"Ciphered", "Ciphered", Access::cell_text, "", "ciphered", false},
    {"Blob", "Blob", Access::handle, "", "", false},
    {"Ordering", "Ordering", Access::handle, "", "", false},
    {"ListInfo", "ListInfo", Access::handle, "", "", false}};

/* The four operations of a base type, or of a record named `name` in C. */
TypeInfo base_info(const std::string &name) {
  TypeInfo info{name,
                name + "_deleter",
                name + "_copier",
                name + "_serialize",
                name + "_deserialize",
                "",
                name + "_fast",
                name,
                Access::handle};
  const BaseType *base = base_type(name);
  if (base == nullptr)
    return info;
  std::string reader = base->reader[0] == '\0' ? "none" : base->reader;
  info.fast = "velmora::detail::fast_" + reader;
  info.wire = base->wire;
  info.access = base->access;
  info.scalar = base->scalar;
  if (base->access == Access::text)
    info = {"char",
            "string_deleter",
            "velmora::detail::copy_text",
            "velmora::detail::write_text",
            "string_deserialize",
            "",
            info.fast,
            name,
            Access::text};
  else if (base->native)
    info.serializer = "velmora::detail::write_" + reader,
    info.reader = "velmora::detail::read_" + reader;
  return info;
}

/* The library's types under the names other schemas give them. */
const std::pair<const char *, const char *> aliases[] = {
    {"string", "Unicode"},
    {"str", "Unicode"},
    {"text", "Unicode"},
    {"int", "Integer"},
    {"int32", "Integer"},
    {"int64", "Long"},
    {"uint64", "ULong"},
    {"bool", "Boolean"},
    {"float", "Double"},
    {"number", "Double"},
    {"timestamp", "Time"},
    {"datetime", "Time"},
    {"bytes", "Blob"},
    {"binary", "Blob"},
    {"ip_address", "IP"},
    {"map", "Dict<T>"},
    {"object", "Dict<T>"},
    {"dict", "Dict<T>"},
    {"array", "List<T>"},
    {"list", "List<T>"},
    {"resultset", "ResultSet<T>"}};

std::string folded(std::string text) {
  for (char &c : text)
    c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
  return text;
}

/* Edits (a letter added, dropped, changed, or two swapped) from a to b. */
size_t distance(const std::string &a, const std::string &b) {
  std::vector<std::vector<size_t>> d(a.size() + 1,
                                     std::vector<size_t>(b.size() + 1));
  for (size_t i = 0; i <= a.size(); i++)
    for (size_t j = 0; j <= b.size(); j++) {
      if (i == 0 || j == 0) {
        d[i][j] = i + j;
        continue;
      }
      d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1,
                          d[i - 1][j - 1] + (a[i - 1] != b[j - 1])});
      if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
        d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
    }
  return d[a.size()][b.size()];
}

/* The one name at the fewest edits from `name`, case aside. A short name
 * is a few edits from many others ("Id" is one from "IP"), so fewer than
 * half its letters may change, and never more than two. */
std::string nearest(const std::string &name,
                    const std::vector<std::string> &names) {
  std::string best;
  size_t fewest = std::min<size_t>(3, (name.size() + 1) / 2);
  bool tie = false;
  for (const std::string &candidate : names) {
    size_t edits = distance(folded(name), folded(candidate));
    tie = edits == fewest || (tie && edits > fewest);
    if (edits < fewest)
      fewest = edits, best = candidate;
  }
  return tie ? "" : best;
}

/* The type meant by the unknown name `name`; "" when none stands out. */
std::string meant(const std::string &name,
                  const std::set<std::string> &records) {
  for (const auto &[alias, type] : aliases)
    if (folded(name) == alias)
      return type;
  std::vector<std::string> names(records.begin(), records.end());
  for (const BaseType &base : base_types)
    names.emplace_back(base.name);
  return nearest(name, names);
}

} // namespace

std::string type_hint(const std::string &text,
                      const std::set<std::string> &records) {
  Type type;
  if (parse_type(text, &type)) {
    Type *leaf = &type;
    while (!leaf->element.empty())
      leaf = &leaf->element[0];
    leaf->name = meant(leaf->name, records);
    if (!leaf->name.empty())
      return "did you mean \"" + type_text(type) + "\"?";
  }
  std::string all;
  for (const BaseType &base : base_types)
    all += std::string(base.name) + ", ";
  return "a type is one of " + all +
         "List<T>, Dict<T>, ResultSet<T> or a record of the schema";
}

const BaseType *base_type(const std::string &name) {
  for (const BaseType &base : base_types)
    if (name == base.name)
      return &base;
  return nullptr;
}

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

Catalog::Catalog(const Schema &schema, const Names &names)
    : Catalog(used_types(schema), names) {}

Catalog::Catalog(const std::vector<Type> &types, const Names &names)
    : names_(names) {
  for (const Type &type : types)
    add(type);
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
  auto record = names_.records.find(type.name);
  if (type.element.empty() && record != names_.records.end()) {
    TypeInfo info = base_info(record->second.c_name);
    info.wire = type.name;
    return info;
  }
  if (type.element.empty())
    return base_info(type.name);
  auto found = ids_.find(type_text(type));
  std::string id = found == ids_.end() ? "" : std::to_string(found->second);
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
  const BaseType *base = base_type(element.name);
  if (base != nullptr && base->native)
    return {e.deleter, "nullptr", "nullptr", e.copier};
  return {e.deleter, e.reader, e.serializer, e.copier};
}

} // namespace velmora_gen
