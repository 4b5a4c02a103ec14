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

/* A whole file's bytes; false with a one-line `error` naming the file and
 * the reason when it cannot be read. */
bool read_text_file(const std::string &path, std::string *text,
                    std::string *error);

/* `text` parsed as strict JSON (duplicate members refused), keeping each
 * value's place in the text; false with a one-line `error` naming `path`
 * when it is not JSON. */
bool parse_json_text(const std::string &path, const std::string &text,
                     Json::Value *value, std::string *error);

/* read_text_file, then parse_json_text. */
bool read_json_file(const std::string &path, Json::Value *value,
                    std::string *error);

} // namespace velmora_gen

#endif
