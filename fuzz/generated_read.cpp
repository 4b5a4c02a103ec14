/*
 * The readers velmora-gen writes, on arbitrary JSON: a Node of the tests'
 * schema (every field type, nested and recursive records, containers of
 * records and of containers). A reader may give null; what it gives must
 * copy to the same tree and read back from its own tree.
 */
#include <cstdint>
#include <cstdlib>
#include <memory>

#include <json/json.h>

#include "everything.h"

namespace {

using NodeHandle = std::unique_ptr<Node, void (*)(void *)>;

Json::Value written(Node *node) {
  Json::Value out;
  Node_serialize(node, out);
  return out;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const char *text = reinterpret_cast<const char *>(data);
  std::unique_ptr<Json::CharReader> parser(
      Json::CharReaderBuilder().newCharReader());
  Json::Value in;
  if (!parser->parse(text, text + size, &in, nullptr))
    return 0;
  NodeHandle node(static_cast<Node *>(Node_deserialize(in)), Node_deleter);
  if (node == nullptr)
    return 0;
  void *copy = nullptr;
  Node_copier(&copy, node.get());
  NodeHandle copied(static_cast<Node *>(copy), Node_deleter);
  Json::Value tree = written(node.get());
  NodeHandle again(static_cast<Node *>(Node_deserialize(tree)), Node_deleter);
  if (copied == nullptr || written(copied.get()) != tree || again == nullptr)
    abort();
  return 0;
}
