#include "json_order.h"

#include <algorithm>

#include "common/input.h"
#include "common/json_text.h"

namespace velmora_gen {

std::vector<std::string> ordered_members(const Json::Value &object) {
  std::vector<std::string> names = object.getMemberNames();
  std::stable_sort(names.begin(), names.end(),
                   [&](const std::string &a, const std::string &b) {
                     return object[a].getOffsetStart() <
                            object[b].getOffsetStart();
                   });
  return names;
}

bool read_text_file(const std::string &path, std::string *text,
                    std::string *error) {
  std::string why;
  if (velmora_tools::read_file(path, text, &why))
    return true;
  *error = path + ": cannot be read: " + why;
  return false;
}

bool parse_json_text(const std::string &path, const std::string &text,
                     Json::Value *value, std::string *error) {
  std::string why;
  if (velmora_tools::parse_json(text, velmora_tools::Strictness::strict, value,
                                &why))
    return true;
  *error = path + ": not JSON: " + why;
  return false;
}

bool read_json_file(const std::string &path, Json::Value *value,
                    std::string *error) {
  std::string text;
  return read_text_file(path, &text, error) &&
         parse_json_text(path, text, value, error);
}

} // namespace velmora_gen
