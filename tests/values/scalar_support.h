/* JSON text in and out for the scalar tests. */
#ifndef VELMORA_TEST_SCALAR_SUPPORT_H
#define VELMORA_TEST_SCALAR_SUPPORT_H

#include <memory>
#include <string>

#include <gtest/gtest.h>
#include <json/json.h>

/* Compact text, members in key order, bytes of UTF-8 texts unescaped. */
inline std::string render(const Json::Value &value) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  builder["emitUTF8"] = true;
  return Json::writeString(builder, value);
}

inline Json::Value parse(const std::string &text) {
  Json::CharReaderBuilder builder;
  std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  Json::Value value;
  std::string errors;
  EXPECT_TRUE(
      reader->parse(text.data(), text.data() + text.size(), &value, &errors))
      << text << ": " << errors;
  return value;
}

#endif
