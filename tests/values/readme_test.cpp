/* The README's table of envelopes: each example is read by the library and
 * written back equal, so that the table cannot drift from the code. */
#include <fstream>
#include <map>
#include <regex>
#include <sstream>

#include <gtest/gtest.h>

#include "value_types.h"

namespace {

/* The operations of a table's type, a container's made for its element. */
value_type operations(const std::string &type) {
  static const std::map<std::string, int> scalars = {
      {"Long", LONG},          {"ULong", ULONG},     {"Double", DOUBLE},
      {"Time", TIME},          {"Date", DATE},       {"IP", IPS},
      {"Ciphered", CIPHERED},  {"Blob", BLOB},       {"Ordering", ORDERING},
      {"ListInfo", LIST_INFO}, {"Unicode", UNICODE}, {"Integer", INTEGER},
      {"Boolean", BOOLEAN}};
  return value_types[scalars.at(type)];
}

/* `text` read as `type` and written back. */
Json::Value round_trip(const std::string &type, const Json::Value &in) {
  Json::Value out;
  std::smatch parts;
  if (!std::regex_match(type, parts, std::regex("(\\w+)<(\\w+)>"))) {
    const value_type ops = operations(type);
    void *value = ops.read(in);
    ops.write(value, out);
    ops.release(value);
    return out;
  }
  const value_type e = operations(parts[2]);
  const std::string kind = parts[1];
  if (kind == "List") {
    list_s *list =
        list_new(parts[2].str().c_str(), e.release, e.read, e.write, e.copy);
    list_serialize(list_deserialize(list, in), out);
    list_del(list);
  } else if (kind == "Dict") {
    dict_s *dict =
        dict_new(parts[2].str().c_str(), e.release, e.read, e.write, e.copy);
    dict_serialize(dict_deserialize(dict, in), out);
    dict_deleter(dict);
  } else {
    result_set_s *set = result_set_new(parts[2].str().c_str(), e.release,
                                       e.read, e.write, e.copy);
    result_set_serialize(result_set_deserialize(set, in), out);
    result_set_del(set);
  }
  return out;
}

TEST(Readme, EveryEnvelopeExampleReadsAndWritesBackEqual) {
  std::ifstream readme(VELMORA_README);
  const std::regex row("\\| `([\\w<>]+)` \\| `(\\{.*\\})` \\|.*");
  int rows = 0;
  for (std::string line; std::getline(readme, line);) {
    std::smatch cells;
    if (!std::regex_match(line, cells, row))
      continue;
    rows++;
    const Json::Value in = json(cells[2]);
    EXPECT_EQ(render(round_trip(cells[1], in)), render(in)) << line;
  }
  EXPECT_EQ(rows, 14);
}

} // namespace
