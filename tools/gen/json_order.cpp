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

bool read_json_file(const std::string &path, Json::Value *value,
                    std::string *error) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream all;
  if (in)
    all << in.rdbuf();
  if (!in || in.bad()) {
    *error = path + ": cannot be read";
    return false;
  }
  std::string why;
  if (!parse_json(all.str(), value, &why)) {
    *error = path + ": not JSON: " + why;
    return false;
  }
  return true;
}

} // namespace velmora_gen
