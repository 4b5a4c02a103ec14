#include "source_helpers.h"

#include <cctype>

namespace velmora_gen {

namespace {

/* Each helper comes after the helpers it calls. */
const Chunk fixed[] = {
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
    {"read_field",
     "/* False when the member is there but could not be read. */\n"
     "bool read_field(const Json::Value &properties, const char *name,\n"
     "                value_deserializer read, void **slot) {\n"
     "  const Json::Value &member = properties[name];\n"
     "  if (member.isNull())\n    return true;\n"
     "  *slot = read(member);\n  return *slot != nullptr;\n}\n"},
    {"copy_field",
     "/* False when `value` is there but could not be copied. */\n"
     "bool copy_field(value_copier copier, void *value, void **slot) {\n"
     "  if (value == nullptr)\n    return true;\n"
     "  copier(slot, value);\n  return *slot != nullptr;\n}\n"},
    {"set_field",
     "/* Nothing changes when the copy cannot be made. */\n"
     "void set_field(void **field, void *value, value_copier copier,\n"
     "               value_deleter deleter) {\n"
     "  void *copy = nullptr;\n"
     "  if (!copy_field(copier, value, &copy))\n    return;\n"
     "  deleter(*field);\n  *field = copy;\n}\n"},
    {"read_reply",
     "/* 0 with the reply's member read into *result, or -4. */\n"
     "int read_reply(const std::string &reply, const char *member,\n"
     "               value_deserializer read, void **result) {\n"
     "  try {\n    Json::Value document;\n"
     "    std::unique_ptr<Json::CharReader> parser(\n"
     "        Json::CharReaderBuilder().newCharReader());\n"
     "    if (!parser->parse(reply.data(), reply.data() + reply.size(), "
     "&document,\n"
     "                       nullptr) ||\n"
     "        !document.isObject() || document.get(member, "
     "Json::Value()).isNull())\n"
     "      return -4;\n    *result = read(document[member]);\n"
     "  } catch (const std::exception &) {\n    return -4;\n  }\n"
     "  return *result == nullptr ? -4 : 0;\n}\n"},
};

bool mentions(const std::string &text, const std::string &name) {
  for (size_t at = text.find(name); at != std::string::npos;
       at = text.find(name, at + 1)) {
    size_t end = at + name.size();
    auto ident = [&](size_t i) {
      return isalnum(static_cast<unsigned char>(text[i])) || text[i] == '_';
    };
    if ((at == 0 || !ident(at - 1)) && (end == text.size() || !ident(end)))
      return true;
  }
  return false;
}

std::string container_function(const Type &type, const char *verb) {
  if (type.name == "List")
    return std::string("list_") + verb;
  if (type.name == "Dict")
    return std::string("dict_") + verb;
  return std::string("result_set_") + verb;
}

} // namespace

std::vector<Chunk> helper_chunks(const Catalog &catalog) {
  std::vector<Chunk> chunks(std::begin(fixed), std::end(fixed));
  for (const Type &type : catalog.containers()) {
    TypeInfo info = catalog.info(type);
    std::string make = catalog.maker(type);
    chunks.push_back(
        {make, "/* " + type_text(type) + " */\n" + info.c_type + " *" + make +
                   "(void) {\n  return " + container_function(type, "new") +
                   "(\"" + catalog.info(type.element[0]).wire + "\", " +
                   catalog.element_ops(type.element[0]) + ");\n}\n"});
    chunks.push_back(
        {info.reader,
         "void *" + info.reader +
             "(const Json::Value &in) {\n  std::unique_ptr<" + info.c_type +
             ", void (*)(void *)> value(" + make + "(), " + info.deleter +
             ");\n  if (value != nullptr)\n    " +
             container_function(type, "deserialize") +
             "(value.get(), in);\n  return value.release();\n}\n"});
  }
  return chunks;
}

std::string used_helpers(const std::vector<Chunk> &chunks,
                         const std::string &body) {
  std::vector<bool> used(chunks.size(), false);
  std::string seen = body;
  for (size_t i = chunks.size(); i-- > 0;)
    if (mentions(seen, chunks[i].name)) {
      used[i] = true;
      seen += chunks[i].text;
    }
  std::string text;
  for (size_t i = 0; i < chunks.size(); i++)
    if (used[i])
      text += "\n" + chunks[i].text;
  return text;
}

} // namespace velmora_gen
