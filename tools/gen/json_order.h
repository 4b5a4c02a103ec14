/* Object members in the order the text wrote them. */
#ifndef VELMORA_GEN_JSON_ORDER_H
#define VELMORA_GEN_JSON_ORDER_H

#include <string>
#include <vector>

#include <json/value.h>

namespace velmora_gen {

/* The member names of an object parsed by jsoncpp, in written order
 * (Json::Value keeps them sorted; the values' offsets keep the order). */
std::vector<std::string> ordered_members(const Json::Value &object);

/* Reads and parses a whole file as strict JSON (duplicate members refused),
 * keeping each value's place in the text; false with a one-line `error`
 * naming the file when it cannot be read or is not JSON. */
bool read_json_file(const std::string &path, Json::Value *value,
                    std::string *error);

} // namespace velmora_gen

#endif
