#include "json_order.h"

#include <algorithm>
#include <fstream>
#include <memory>
#include <sstream>

#include <json/reader.h>

namespace velmora_gen {

bool parse_json(const std::string &text, Json::Value *value,
                std::string *error) {
  Json::CharReaderBuilder builder;
  Json::CharReaderBuilder::strictMode(&builder.settings_);
  std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  std::string why;
  if (reader->parse(text.data(), text.data() + text.size(), value, &why))
    return true;
  /* jsoncpp writes "* Line 1, Column 2\n  Syntax error: ...\n". */
  error->clear();
  for (char c : why)
    if (c != '\n' && c != '*' &&
        !(c == ' ' && (error->empty() || error->back() == ' ')))
      *error += c;
  while (!error->empty() && error->back() == ' ')
    error->pop_back();
  return false;
}

std::vector<std::string> ordered_members(const Json::Value &object) {
  std::vector<std::string> names = object.getMemberNames();
  std::stable_sort(names.begin(), names.end(),
                   [&](const std::string &a, const std::string &b) {
                     return object[a].getOffsetStart() <
                            object[b].getOffsetStart();
                   });
  return names;
}

bool read_file(const std::string &path, std::string *text) {
  std::ifstream in(path, std::ios::binary);
  if (!in)
    return false;
  std::ostringstream all;
  all << in.rdbuf();
  *text = all.str();
  return !in.bad();
}

} // namespace velmora_gen
