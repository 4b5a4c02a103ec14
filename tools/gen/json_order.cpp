#include "json_order.h"

#include <algorithm>
#include <fstream>
#include <memory>
#include <sstream>

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
  if (!velmora_tools::parse_json(all.str(), velmora_tools::Strictness::strict,
                                 value, &why)) {
    *error = path + ": not JSON: " + why;
    return false;
  }
  return true;
}

} // namespace velmora_gen
