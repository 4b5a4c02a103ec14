/* Helpers shared by the container and record tests. */
#ifndef VELMORA_TEST_CONTAINER_SUPPORT_H
#define VELMORA_TEST_CONTAINER_SUPPORT_H

#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>

#include <json/json.h>

#include "velmora/values.h"

/* A namespace of their own: each test source of this directory links into
 * one program with the scalar tests' helpers. */
namespace container_test {

/* Compact JSON text; the JSON library writes object members in ascending
 * byte order of their names. */
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

/* A test-only enveloped type "Tag": a cell that owns one heap text, so that
 * a missed release or a shared copy shows up under the leak checker. */
struct Tag {
  char *label;
};

inline void *tag_new(const char *label) {
  Tag *tag = static_cast<Tag *>(malloc(sizeof *tag));
  tag->label = strdup(label);
  return tag;
}

inline const char *tag_label(const void *tag) {
  return static_cast<const Tag *>(tag)->label;
}

inline void tag_deleter(void *tag) {
  free(static_cast<Tag *>(tag)->label);
  free(tag);
}

inline void *tag_deserialize(const Json::Value &in) {
  return tag_new(in.get("__value__", Json::Value()).asString().c_str());
}

inline Json::Value *tag_serialize(void *tag, Json::Value &out) {
  out["__type__"] = "Tag";
  out["__value__"] = tag_label(tag);
  return &out;
}

inline void tag_copier(void **slot, void *tag) {
  *slot = tag_new(tag_label(tag));
}

} // namespace container_test

#endif
