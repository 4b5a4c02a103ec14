/* Whole texts and replies read: the fast road first, else a jsoncpp tree. */
#ifndef VELMORA_DETAIL_ENTRY_H
#define VELMORA_DETAIL_ENTRY_H

#include <memory>
#include <string>
#include <string_view>

#include <json/reader.h>
#include <json/writer.h>

#include "velmora/detail/walk.h"

namespace velmora::detail {

/* The root object's `member` of a whole text, read as `read_value` does;
 * `broken` unless the text is one strict JSON object holding the member
 * once, with a value. The other members are checked, not kept. On
 * `broken`, `*out` may hold a value to release. */
template <typename Fast>
Read read_member(const char *json, size_t length, std::string_view member,
                 Fast fast, value_deserializer slow, void **out) {
  Cursor c{json, json + length, 0};
  bool found = false;
  Read read = members(c, [&](Cursor &c, std::string_view name) {
    Json::Value ignored;
    skip_space(c);
    const char *begin = c.at;
    if (name != member)
      return skip_value(c) && parse_span(begin, c.at, &ignored) ? Read::done
                                                                : Read::broken;
    if (found || literal(c, "null"))
      return Read::broken;
    found = true;
    return read_value(c, fast, slow, out);
  });
  skip_space(c);
  return read == Read::done && found && c.at == c.end ? read : Read::broken;
}

/* The tree jsoncpp's default reader makes of a whole text; false when the
 * text is not JSON. */
inline bool parse_whole(const char *json, size_t length, Json::Value *tree) {
  std::unique_ptr<Json::CharReader> reader(
      Json::CharReaderBuilder().newCharReader());
  return reader->parse(json, json + length, tree, nullptr);
}

/* The one policy of every reader of text: `fast(&value)` first; when it
 * gives up or throws, what it made is released and `tree()` decides. Null
 * when the tree road gives nothing or throws. */
template <typename Fast, typename Tree>
void *fast_then_tree(Fast fast, Tree tree, value_deleter deleter) {
  void *value = nullptr;
  try {
    if (fast(&value) == Read::done)
      return value;
  } catch (const std::exception &) {
  }
  deleter(value);
  try {
    return tree();
  } catch (const std::exception &) {
    return nullptr;
  }
}

/* The T of a whole text, read by `fast`, or else by `slow` from the
 * text's tree. Null when that is not JSON or a deserializer throws. */
template <typename T, typename Fast>
T *read_text(const char *json, size_t length, Fast fast,
             value_deserializer slow, value_deleter deleter) {
  auto from_text = [&](void **value) {
    Cursor c{json, json + length, 0};
    Read read = read_value(c, fast, slow, value);
    skip_space(c);
    return read == Read::done && c.at == c.end ? read : Read::broken;
  };
  auto from_tree = [&]() -> void * {
    Json::Value tree;
    return parse_whole(json, length, &tree) ? slow(tree) : nullptr;
  };
  return static_cast<T *>(fast_then_tree(from_text, from_tree, deleter));
}

/* 0 with a reply's `member` read into `*result` (released when `result`
 * is null), or -4 when the reply is not a JSON object holding the member
 * with a value that reads. */
template <typename T>
int read_reply(const std::string &reply, std::string_view member, FastRead fast,
               value_deserializer read, value_deleter deleter, T **result) {
  auto from_text = [&](void **value) {
    return read_member(reply.data(), reply.size(), member, fast, read, value);
  };
  auto from_tree = [&]() -> void * {
    Json::Value document;
    if (!parse_whole(reply.data(), reply.size(), &document) ||
        !document.isObject())
      return nullptr;
    const Json::Value *found =
        document.find(member.data(), member.data() + member.size());
    return found == nullptr || found->isNull() ? nullptr : read(*found);
  };
  void *value = fast_then_tree(from_text, from_tree, deleter);
  if (value == nullptr)
    return -4;
  if (result == nullptr)
    deleter(value);
  else
    *result = static_cast<T *>(value);
  return 0;
}

/* A request's text: one line, with no indentation to send. */
inline std::string request_text(const Json::Value &request) {
  Json::StreamWriterBuilder writer;
  writer["indentation"] = "";
  return Json::writeString(writer, request);
}

} // namespace velmora::detail

#endif
