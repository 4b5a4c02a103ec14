#include <cstring>
#include <functional>
#include <memory>
#include <set>
#include <sstream>
#include <string>

#include <gtest/gtest.h>
#include <json/json.h>

#include "everything.h"
#include "failing_malloc.h"

namespace {

using NodeHandle = std::unique_ptr<Node, void (*)(void *)>;

std::string text(void *node) {
  Json::Value out;
  Node_serialize(node, out);
  return Json::writeString(Json::StreamWriterBuilder(), out);
}

Json::Value parse(const std::string &json) {
  Json::Value value;
  std::istringstream(json) >> value;
  return value;
}

/* A Flat with every field. */
std::unique_ptr<Flat, void (*)(void *)> full_flat() {
  std::unique_ptr<Flat, void (*)(void *)> flat(Flat_new(), Flat_deleter);
  int64_t id = -9, when = 1700000001;
  uint64_t code = 7;
  double weight = -0.25;
  int32_t count = 12, no = 0;
  flat_setId(flat.get(), &id), flat_setCode(flat.get(), &code);
  flat_setWeight(flat.get(), &weight), flat_setWhen(flat.get(), &when);
  flat_setDay(flat.get(), &when), flat_setCount(flat.get(), &count);
  flat_setOk(flat.get(), &no), flat_setName(flat.get(), "flat");
  flat_setAddress(flat.get(), "192.0.2.2"), flat_setSecret(flat.get(), "t");
  return flat;
}

/* Every field present, a child Node and a Leaf pointing back to a Node. */
NodeHandle full() {
  NodeHandle node(Node_new(), Node_deleter), inner(Node_new(), Node_deleter);
  int64_t big = -7, when = 1700000000;
  uint64_t code = 18446744073709551615u;
  double weight = 2.5;
  int32_t count = -3, yes = 1;
  node_setName(inner.get(), "inner");
  node_setId(node.get(), &big), node_setCode(node.get(), &code);
  node_setWeight(node.get(), &weight), node_setWhen(node.get(), &when);
  node_setDay(node.get(), &when), node_setCount(node.get(), &count);
  node_setOk(node.get(), &yes), node_setName(node.get(), "näme");
  node_setAddress(node.get(), "192.0.2.1"), node_setSecret(node.get(), "s");
  Blob blob{const_cast<char *>("\x01\x02"), 2};
  node_setBlob(node.get(), &blob);
  std::unique_ptr<Ordering, void (*)(void *)> order(Ordering_new(),
                                                    Ordering_deleter);
  ordering_setOrder_by(order.get(), "name");
  node_setOrder(node.get(), order.get());
  std::unique_ptr<ListInfo, void (*)(void *)> info(ListInfo_new(),
                                                   ListInfo_deleter);
  listinfo_setLimit(info.get(), 4);
  node_setInfo(node.get(), info.get());
  node_setChild(node.get(), inner.get());
  std::unique_ptr<Leaf, void (*)(void *)> leaf(Leaf_new(), Leaf_deleter);
  leaf_setLabel(leaf.get(), "leaf"), leaf_setNode(leaf.get(), inner.get());
  node_setLeaf(node.get(), leaf.get());
  std::unique_ptr<list_s, void (*)(void *)> tags(node_newTags(), list_del),
      numbers(node_newNumbers(), list_del), grid(node_newGrid(), list_del);
  list_add(tags.get(), const_cast<char *>("a"));
  Integer three{3};
  list_add(numbers.get(), &three);
  node_setTags(node.get(), tags.get()),
      node_setNumbers(node.get(), numbers.get());
  std::unique_ptr<list_s, void (*)(void *)> row(
      list_new("Long", Long_deleter, Long_deserialize, Long_serialize,
               Long_copier),
      list_del);
  list_add(row.get(), &code);
  list_add(grid.get(), row.get());
  node_setGrid(node.get(), grid.get());
  std::unique_ptr<dict_s, void (*)(void *)> flags(node_newFlags(),
                                                  dict_deleter),
      scores(node_newScores(), dict_deleter);
  Boolean no{0};
  Double half{0.5};
  dict_add(flags.get(), "f", &no), dict_add(scores.get(), "s", &half);
  node_setFlags(node.get(), flags.get()),
      node_setScores(node.get(), scores.get());
  std::unique_ptr<result_set_s, void (*)(void *)> page(node_newPage(),
                                                       result_set_del);
  result_set_add(page.get(), leaf.get());
  node_setPage(node.get(), page.get());
  node_setFlat(node.get(), full_flat().get());
  return node;
}

TEST(Generated, WrittenReadAndCopiedEqualsTheOriginal) {
  NodeHandle node = full(), empty(Node_new(), Node_deleter);
  for (Node *original : {node.get(), empty.get()}) {
    NodeHandle read(
        static_cast<Node *>(Node_deserialize(parse(text(original)))),
        Node_deleter);
    void *copy = nullptr;
    Node_copier(&copy, original);
    NodeHandle copied(static_cast<Node *>(copy), Node_deleter);
    EXPECT_EQ(text(read.get()), text(original));
    EXPECT_EQ(text(copied.get()), text(original));
  }
  int64_t id = 0;
  EXPECT_EQ(node_getId(node.get(), &id), 1);
  EXPECT_EQ(id, -7);
  EXPECT_EQ(node_getId(empty.get(), &id), 0);
  EXPECT_STREQ(node_getAddress(node.get()), "192.0.2.1");
  EXPECT_EQ(list_get_nb_elements(
                static_cast<list_s *>(list_get(node_getGrid(node.get()), 0))),
            1);
}

TEST(Generated, CopiesAreDeep) {
  NodeHandle node = full();
  std::string before = text(node.get());
  void *copy = nullptr;
  Node_copier(&copy, node.get());
  NodeHandle copied(static_cast<Node *>(copy), Node_deleter);
  node_setName(node_getChild(copied.get()), "changed");
  node_setName(copied.get(), nullptr);
  leaf_setLabel(node_getLeaf(copied.get()), nullptr);
  EXPECT_EQ(text(node.get()), before);
  EXPECT_EQ(node_getName(copied.get()), nullptr);
}

/* Runs `body` with allocation 1, 2, ... failing until none fails; every
 * outcome must be allowed, any when none is listed (the sanitizers see
 * leaks). */
void each_failure(const std::function<void()> &prepare,
                  const std::function<std::string()> &body,
                  const std::set<std::string> &allowed) {
  for (int n = 1;; n++) {
    std::string outcome;
    prepare();
    int made = with_failing_malloc(n, [&] { outcome = body(); });
    EXPECT_TRUE(allowed.empty() || allowed.count(outcome) == 1)
        << "allocation " << n << ": " << outcome;
    if (made < n)
      return;
  }
}

std::string made(Node *node) {
  NodeHandle guard(node, Node_deleter);
  return node == nullptr ? "null" : text(node);
}

TEST(Generated, EveryAllocationFailingInTurnGivesNullOrNoChange) {
  NodeHandle node = full(), target(nullptr, Node_deleter);
  const std::string json = text(node.get()), empty = made(Node_new());
  auto fresh = [&] { target = full(); };
  auto changed = [&](const std::function<void(Node *)> &change) {
    fresh();
    change(target.get());
    return text(target.get());
  };
  std::unique_ptr<list_s, void (*)(void *)> tags(node_newTags(), list_del);
  const struct {
    std::function<void(Node *)> set;
  } setters[] = {
      {[&](Node *n) { node_setChild(n, node_getChild(node.get())); }},
      {[&](Node *n) { node_setName(n, "other"); }},
      {[&](Node *n) { node_setAddress(n, "192.0.2.9"); }},
      {[&](Node *n) { node_setTags(n, tags.get()); }}};
  for (const auto &setter : setters)
    each_failure(fresh,
                 [&] {
                   setter.set(target.get());
                   return text(target.get());
                 },
                 {json, changed(setter.set)});
  each_failure([] {}, [] { return made(Node_new()); }, {"null", empty});
  each_failure(
      [] {},
      [&] { return made(static_cast<Node *>(Node_deserialize(parse(json)))); },
      {"null", json});
  Json::StreamWriterBuilder writer;
  writer["indentation"] = "";
  const std::string tight = Json::writeString(writer, parse(json));
  for (const std::string *read : {&json, &tight})
    each_failure([] {},
                 [&] { return made(Node_read(read->data(), read->size())); },
                 {"null", json});
  each_failure([] {},
               [&] {
                 void *copy = nullptr;
                 Node_copier(&copy, node.get());
                 return made(static_cast<Node *>(copy));
               },
               {"null", json});
}

} // namespace
