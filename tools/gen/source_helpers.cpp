#include "source_helpers.h"

#include <cctype>

#include "escapes.h"
#include "layout.h"

namespace velmora_gen {

namespace {

/* Each helper comes after the helpers it calls. */
const Chunk fixed[] = {
    {"Owned", "template <typename T> using Owned = std::unique_ptr<T, void "
              "(*)(void *)>;\n"},
    {"new_record", "template <typename T> T *new_record() {\n"
                   "  return static_cast<T *>(calloc(1, sizeof(T)));\n}\n"},
    {"copy_text", "void copy_text(void **slot, void *text) {\n"
                  "  string_copier(reinterpret_cast<char **>(slot), "
                  "static_cast<char *>(text));\n}\n"},
    {"write_text", "Json::Value *write_text(void *text, Json::Value &out) {\n"
                   "  out = static_cast<const char *>(text);\n"
                   "  return &out;\n}\n"},
    {"write_integer",
     "Json::Value *write_integer(void *value, Json::Value &out) {\n"
     "  out = static_cast<Integer *>(value)->value;\n  return &out;\n}\n"},
    {"write_boolean",
     "Json::Value *write_boolean(void *value, Json::Value &out) {\n"
     "  out = static_cast<Boolean *>(value)->value != 0;\n  return &out;\n}\n"},
    {"read_integer", "void *read_integer(const Json::Value &in) {\n"
                     "  Integer value{in.asInt()};\n  void *cell = nullptr;\n"
                     "  Integer_copier(&cell, &value);\n  return cell;\n}\n"},
    {"read_boolean",
     "void *read_boolean(const Json::Value &in) {\n"
     "  Boolean value{in.asBool() ? 1 : 0};\n  void *cell = nullptr;\n"
     "  Boolean_copier(&cell, &value);\n  return cell;\n}\n"},
    {"get_number", "template <typename Cell, typename Value>\n"
                   "int32_t get_number(const Cell *cell, Value *value) {\n"
                   "  if (cell == nullptr)\n    return 0;\n"
                   "  if (value != nullptr)\n    *value = cell->value;\n"
                   "  return 1;\n}\n"},
    {"cell_text", "template <typename Cell> const char *cell_text(const Cell "
                  "*cell) {\n"
                  "  return cell == nullptr ? nullptr : cell->value;\n}\n"},
    {"read_field",
     "/* A missing or null member leaves the field absent; false when the\n"
     " * member is there but could not be read. */\n"
     "template <typename T>\n"
     "bool read_field(const Json::Value &properties, std::string_view name,\n"
     "                value_deserializer read, T **field) {\n"
     "  const Json::Value *member =\n"
     "      properties.find(name.data(), name.data() + name.size());\n"
     "  if (member == nullptr || member->isNull())\n    return true;\n"
     "  *field = static_cast<T *>(read(*member));\n"
     "  return *field != nullptr;\n}\n"},
    {"keep_unknown",
     "/* Keeps the members no field names, to write them back. */\n"
     "template <typename... Names>\n"
     "void keep_unknown(const Json::Value &properties, Json::Value **unknown,\n"
     "                  Names... known) {\n"
     "  if (!properties.isObject())\n    return;\n"
     "  for (auto at = properties.begin(); at != properties.end(); ++at) {\n"
     "    std::string name = at.name();\n"
     "    if ((... || (name == known)))\n      continue;\n"
     "    if (*unknown == nullptr)\n"
     "      *unknown = new Json::Value(Json::objectValue);\n"
     "    (**unknown)[name] = *at;\n  }\n}\n"},
    {"write_unknown",
     "void write_unknown(Json::Value &properties, const Json::Value *unknown) "
     "{\n"
     "  if (unknown == nullptr)\n    return;\n"
     "  for (auto at = unknown->begin(); at != unknown->end(); ++at)\n"
     "    properties[at.name()] = *at;\n}\n"},
    {"copy_unknown",
     "/* False when memory runs out. */\n"
     "bool copy_unknown(const Json::Value *from, Json::Value **to) {\n"
     "  if (from == nullptr)\n    return true;\n"
     "  try {\n    *to = new Json::Value(*from);\n"
     "  } catch (const std::exception &) {\n    return false;\n  }\n"
     "  return true;\n}\n"},
    {"write_field", "template <typename T>\n"
                    "void write_field(Json::Value &object, std::string_view "
                    "name,\n"
                    "                 value_serializer write, const T *value) "
                    "{\n"
                    "  if (value != nullptr)\n"
                    "    write(const_cast<T *>(value), "
                    "object[std::string(name)]);\n}\n"},
    {"write_number",
     "template <typename Cell, typename Value>\n"
     "void write_number(Json::Value &object, std::string_view name,\n"
     "                  value_serializer write, const Value *value) {\n"
     "  Cell cell{value == nullptr ? Value() : *value};\n"
     "  write_field(object, name, write, value == nullptr ? nullptr : "
     "&cell);\n}\n"},
    {"write_in_cell",
     "template <typename Cell>\n"
     "void write_in_cell(Json::Value &object, std::string_view name,\n"
     "                   value_serializer write, const char *value) {\n"
     "  Cell cell{const_cast<char *>(value)};\n"
     "  write_field(object, name, write, value == nullptr ? nullptr : "
     "&cell);\n}\n"},
    {"copy_field",
     "/* False when `value` is there but could not be copied. */\n"
     "template <typename T, typename Value>\n"
     "bool copy_field(value_copier copier, const Value *value, T **field) {\n"
     "  if (value == nullptr)\n    return true;\n"
     "  void *copy = nullptr;\n"
     "  copier(&copy, const_cast<Value *>(value));\n"
     "  *field = static_cast<T *>(copy);\n  return copy != nullptr;\n}\n"},
    {"set_field",
     "/* Nothing changes when the copy cannot be made. */\n"
     "template <typename T, typename Value>\n"
     "void set_field(T **field, const Value *value, value_copier copier,\n"
     "               value_deleter deleter) {\n"
     "  T *copy = nullptr;\n"
     "  if (!copy_field(copier, value, &copy))\n    return;\n"
     "  deleter(*field);\n  *field = copy;\n}\n"},
    {"set_number", "template <typename Cell, typename Value>\n"
                   "void set_number(Cell **field, const Value *value, "
                   "value_copier copier,\n"
                   "                value_deleter deleter) {\n"
                   "  Cell cell{value == nullptr ? Value() : *value};\n"
                   "  set_field(field, value == nullptr ? nullptr : &cell, "
                   "copier, deleter);\n}\n"},
    {"set_in_cell", "template <typename Cell>\n"
                    "void set_in_cell(Cell **field, const char *value, "
                    "value_copier copier,\n"
                    "                 value_deleter deleter) {\n"
                    "  Cell cell{const_cast<char *>(value)};\n"
                    "  set_field(field, value == nullptr ? nullptr : &cell, "
                    "copier, deleter);\n}\n"},
    {"whole_list",
     "/* The library keeps what it read when memory runs out, and a null\n"
     " * where an element could not be read: such a container is not whole.\n"
     " */\n"
     "bool whole_list(const list_s *list, const Json::Value &in) {\n"
     "  const Json::Value &entries = in[\"__elements__\"];\n"
     "  if (!entries.isArray())\n    return list->nb_elements == 0;\n"
     "  if (entries.size() != static_cast<Json::ArrayIndex>(list->nb_elements))"
     "\n    return false;\n"
     "  for (Json::ArrayIndex i = 0; i < entries.size(); i++)\n"
     "    if (list->elements[i] == nullptr && !entries[i].isNull())\n"
     "      return false;\n  return true;\n}\n"},
    {"whole_set", "bool whole_set(const result_set_s *set, const Json::Value "
                  "&in) {\n"
                  "  return whole_list(set->list, in);\n}\n"},
    {"whole_dict",
     "bool whole_dict(const dict_s *dict, const Json::Value &in) {\n"
     "  const Json::Value &members = in[\"__elements__\"];\n"
     "  if (!members.isObject())\n    return dict->nb_elements == 0;\n"
     "  if (members.size() != static_cast<Json::ArrayIndex>(dict->nb_elements))"
     "\n    return false;\n"
     "  const dict_entry_s *entry = dict->first;\n"
     "  for (const Json::Value &member : members) {\n"
     "    if (entry->value == nullptr && !member.isNull())\n"
     "      return false;\n    entry = entry->next;\n  }\n  return true;\n}\n"},
    {"copied_list",
     "/* The library keeps a null where an element could not be copied. */\n"
     "bool copied_list(const list_s *copy, const list_s *source) {\n"
     "  for (int32_t i = 0; i < source->nb_elements; i++)\n"
     "    if (copy->elements[i] == nullptr && source->elements[i] != nullptr)\n"
     "      return false;\n  return true;\n}\n"},
    {"copied_set",
     "bool copied_set(const result_set_s *copy, const result_set_s *source) {\n"
     "  return copy->list == nullptr || copied_list(copy->list, "
     "source->list);\n}\n"},
    {"copied_dict",
     "bool copied_dict(const dict_s *copy, const dict_s *source) {\n"
     "  const dict_entry_s *from = source->first, *to = copy->first;\n"
     "  for (int32_t i = 0; i < source->nb_elements; i++) {\n"
     "    if (to->value == nullptr && from->value != nullptr)\n"
     "      return false;\n"
     "    from = from->next, to = to->next;\n  }\n  return true;\n}\n"},
    {"keep_whole",
     "template <typename T>\n"
     "void keep_whole(void **slot, const T *source, value_deleter deleter,\n"
     "                bool (*whole)(const T *, const T *)) {\n"
     "  if (*slot != nullptr && !whole(static_cast<T *>(*slot), source)) {\n"
     "    deleter(*slot);\n    *slot = nullptr;\n  }\n}\n"},
    {"read_tree",
     "/* The reply's `member` as jsoncpp's tree of the whole reply gives it;\n"
     " * null when the reply is not JSON or the member is missing. */\n"
     "void *read_tree(const std::string &reply, std::string_view member,\n"
     "                value_deserializer read) {\n"
     "  Json::Value document;\n"
     "  std::unique_ptr<Json::CharReader> parser(\n"
     "      Json::CharReaderBuilder().newCharReader());\n"
     "  const char *end = reply.data() + reply.size();\n"
     "  if (!parser->parse(reply.data(), end, &document, nullptr) ||\n"
     "      !document.isObject())\n"
     "    return nullptr;\n"
     "  const Json::Value *found =\n"
     "      document.find(member.data(), member.data() + member.size());\n"
     "  return found == nullptr || found->isNull() ? nullptr : read(*found);\n"
     "}\n"},
    {"read_fast",
     "/* The reply's `member` read from the text itself; null where the fast\n"
     " * road gives up. */\n"
     "void *read_fast(const std::string &reply, std::string_view member,\n"
     "                velmora_text::FastRead fast, value_deserializer read,\n"
     "                value_deleter deleter) {\n"
     "  void *value = nullptr;\n"
     "  try {\n"
     "    if (velmora_text::read_member(reply.data(), reply.size(), member, "
     "fast,\n"
     "                                  read, &value) == "
     "velmora_text::Read::done)\n"
     "      return value;\n"
     "  } catch (const std::exception &) {\n"
     "  }\n"
     "  deleter(value);\n"
     "  return nullptr;\n"
     "}\n"},
    {"read_reply",
     "/* 0 with the reply's `member` read into *result, or -4. */\n"
     "template <typename T>\n"
     "int read_reply(const std::string &reply, std::string_view member,\n"
     "               velmora_text::FastRead fast, value_deserializer read,\n"
     "               value_deleter deleter, T **result) {\n"
     "  void *value = read_fast(reply, member, fast, read, deleter);\n"
     "  try {\n"
     "    if (value == nullptr)\n"
     "      value = read_tree(reply, member, read);\n"
     "  } catch (const std::exception &) {\n    return -4;\n  }\n"
     "  if (value == nullptr)\n    return -4;\n"
     "  if (result == nullptr)\n    deleter(value);\n"
     "  else\n    *result = static_cast<T *>(value);\n  return 0;\n}\n"},
    {"compact", "/* The request as one line: no indentation to send. */\n"
                "std::string compact(const Json::Value &request) {\n"
                "  Json::StreamWriterBuilder writer;\n"
                "  writer[\"indentation\"] = \"\";\n"
                "  return Json::writeString(writer, request);\n"
                "}\n"},
};

/* `text` with the contents of its string literals blanked, so that a wire
 * name never reads as a call. */
std::string code_only(std::string text) {
  bool inside = false;
  for (size_t i = 0; i < text.size(); i++) {
    if (text[i] == '"')
      inside = !inside;
    else if (inside && text[i] == '\\')
      text[i] = ' ', text[++i] = ' ';
    else if (inside)
      text[i] = ' ';
  }
  return text;
}

bool mentions(const std::string &text, const std::string &name) {
  for (size_t at = text.find(name); at != std::string::npos;
       at = text.find(name, at + 1)) {
    size_t end = at + name.size();
    auto ident = [&](size_t i) {
      return isalnum(static_cast<unsigned char>(text[i])) != 0 ||
             text[i] == '_';
    };
    // Fields may share a helper's name.
    bool member = at > 0 && text[at - 1] == '>';
    if ((at == 0 || !ident(at - 1)) && !member &&
        (end == text.size() || !ident(end)))
      return true;
  }
  return false;
}

/* make_cN, read_cN and copy_cN of one container type. */
std::vector<Chunk> container_chunks(const Catalog &catalog, const Type &type) {
  TypeInfo info = catalog.info(type);
  std::string make = catalog.maker(type);
  std::vector<std::string> arguments{
      c_literal(catalog.info(type.element[0]).wire)};
  for (const std::string &op : catalog.element_ops(type.element[0]))
    arguments.push_back(op);
  std::string copy = type.name == "ResultSet"
                         ? "resultset_copier"
                         : container_function(type, "copier");
  std::string kind = type.name == "List" ? "list" : "dict";
  if (type.name == "ResultSet")
    kind = "set";
  std::string maker =
      "/* " + type_text(type) + " */\n" + info.c_type + " *" + make +
      "(void) {\n" +
      call("  ", "return " + container_function(type, "new") + "(", arguments,
           ");") +
      "}\n";
  std::string reader =
      "void *" + info.reader + "(const Json::Value &in) {\n" +
      call("  ", "Owned<" + info.c_type + "> value(",
           {make + "()", info.deleter}, ");") +
      "  if (value == nullptr)\n    return nullptr;\n  " +
      container_function(type, "deserialize") + "(value.get(), in);\n" +
      call("  ", "return whole_" + kind + "(",
           {"value.get(), in) ? value.release() : nullptr"}, ";") +
      "}\n";
  std::string copier =
      "void " + info.copier + "(void **slot, void *value) {\n  " + copy +
      "(slot, value);\n" +
      call("  ", "keep_whole(",
           {"slot", "static_cast<" + info.c_type + " *>(value)", info.deleter,
            "copied_" + kind},
           ");") +
      "}\n";
  std::string fast =
      "velmora_text::Read " + info.fast +
      "(velmora_text::Cursor &c, void **out) {\n" +
      call("  ", "return velmora_text::read_container(",
           {"c", c_literal(catalog.info(type.element[0]).wire) + "sv",
            catalog.info(type.element[0]).fast, make, info.deleter, info.reader,
            "out"},
           ");") +
      "}\n";
  return {{make, maker},
          {info.reader, reader},
          {info.copier, copier},
          {info.fast, fast}};
}

} // namespace

bool helper_name(const std::string &name) {
  for (const Chunk &chunk : fixed)
    if (name == chunk.name)
      return true;
  for (const char *prefix : {"make_c", "read_c", "copy_c", "fast_c"})
    if (name.compare(0, 6, prefix) == 0 && name.size() > 6 &&
        name.find_first_not_of("0123456789", 6) == std::string::npos)
      return true;
  return false;
}

std::vector<Chunk> helper_chunks(const Catalog &catalog) {
  std::vector<Chunk> chunks(std::begin(fixed), std::end(fixed));
  for (const Type &type : catalog.containers())
    for (const Chunk &chunk : container_chunks(catalog, type))
      chunks.push_back(chunk);
  return chunks;
}

std::string used_helpers(const std::vector<Chunk> &chunks,
                         const std::string &body) {
  std::vector<bool> used(chunks.size(), false);
  std::string seen = code_only(body);
  for (size_t i = chunks.size(); i-- > 0;)
    if (mentions(seen, chunks[i].name)) {
      used[i] = true;
      seen += code_only(chunks[i].text);
    }
  std::string text;
  for (size_t i = 0; i < chunks.size(); i++)
    if (used[i])
      text += "\n" + chunks[i].text;
  return text;
}

} // namespace velmora_gen
