/*
 * The readers velmora-gen writes, on arbitrary JSON text: a Node of the
 * tests' schema (every field type, nested and recursive records, containers
 * of records and of containers). Node_read, reading the text itself, must
 * give what Node_deserialize gives for jsoncpp's tree of it, to the byte of
 * its written form (or null both). What it gives must copy to the same tree
 * and read back from its own tree.
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

std::string text(Node *node) {
  return Json::writeString(Json::StreamWriterBuilder(), written(node));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const char *json = reinterpret_cast<const char *>(data);
  std::unique_ptr<Json::CharReader> parser(
      Json::CharReaderBuilder().newCharReader());
  Json::Value in;
  bool parsed = parser->parse(json, json + size, &in, nullptr);
  NodeHandle node(parsed ? static_cast<Node *>(Node_deserialize(in)) : nullptr,
                  Node_deleter);
  NodeHandle fast(Node_read(json, size), Node_deleter);
  if ((node == nullptr) != (fast == nullptr) ||
      (node != nullptr && text(node.get()) != text(fast.get())))
    abort();
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
