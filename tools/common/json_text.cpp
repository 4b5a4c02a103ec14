#include "common/json_text.h"

#include <cctype>
#include <memory>

#include <json/reader.h>
#include <json/writer.h>

namespace velmora_tools {
namespace {

std::unique_ptr<Json::CharReader> new_reader(Strictness strictness) {
  Json::CharReaderBuilder builder;
  if (strictness != Strictness::lenient)
    Json::CharReaderBuilder::strictMode(&builder.settings_);
  if (strictness == Strictness::strict_any_root) {
    builder["strictRoot"] = false;
    builder["skipBom"] = false;
  }
  return std::unique_ptr<Json::CharReader>(builder.newCharReader());
}

/* jsoncpp writes "* Line 1, Column 2\n  Syntax error: ...\n": one line,
 * without the bullets. */
std::string error_line(const std::string &text) {
  std::string line;
  bool line_start = true;
  for (char c : text) {
    bool space = isspace(static_cast<unsigned char>(c)) != 0;
    bool bullet = line_start && c == '*';
    line_start = c == '\n' || (line_start && space);
    if (!bullet && (!space || (!line.empty() && line.back() != ' ')))
      line += space ? ' ' : c;
  }
  while (!line.empty() && line.back() == ' ')
    line.pop_back();
  return line;
}

} // namespace

bool parse_json(std::string_view text, Strictness strictness,
                Json::Value *value, std::string *why) {
  std::unique_ptr<Json::CharReader> reader = new_reader(strictness);
  std::string reason;
  try {
    if (reader->parse(text.data(), text.data() + text.size(), value, &reason))
      return true;
  } catch (const std::exception &e) {
    /* Nesting past the reader's stack limit throws. */
    reason = e.what();
  }
  if (why != nullptr)
    *why = error_line(reason);
  return false;
}

std::string one_line(const Json::Value &value) {
  Json::StreamWriterBuilder writer;
  writer["indentation"] = "";
  return Json::writeString(writer, value);
}

} // namespace velmora_tools
