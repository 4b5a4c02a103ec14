/* Helpers shared by the value tests. */
#ifndef VELMORA_TEST_CONTAINER_SUPPORT_H
#define VELMORA_TEST_CONTAINER_SUPPORT_H

#include <memory>
#include <stdexcept>
#include <string>

#include <json/json.h>

#include "velmora/values.h"

namespace container_test {

/* Compact JSON text; the JSON library writes object members in ascending
 * byte order of their names and escapes bytes outside ASCII. */
inline std::string render(const Json::Value &value) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  return Json::writeString(builder, value);
}

inline Json::Value parse(const std::string &text) {
  Json::Value value;
  Json::CharReaderBuilder builder;
  std::string errors;
  std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  if (!reader->parse(text.data(), text.data() + text.size(), &value, &errors))
    throw std::runtime_error("bad test JSON: " + errors);
  return value;
}

/* string_copier in the copier's shape, as callers of the library pass it. */
inline value_copier text_copier() {
  return reinterpret_cast<value_copier>(
      reinterpret_cast<void (*)()>(string_copier));
}

/* An IP cell owning a copy of `text`: an enveloped element whose lost or
 * shared copies the leak checker and the allocator notice. */
inline void *ip_cell(const char *text) {
  void *cell = IP_new();
  ip_setValue(cell, text);
  return cell;
}

} // namespace container_test

#endif
