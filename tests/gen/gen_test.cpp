#include <cstring>
#include <functional>
#include <memory>
#include <set>
#include <sstream>
#include <string>

#include <gtest/gtest.h>
#include <json/json.h>

#include "devserver_process.h"
#include "everything.h"
#include "failing_malloc.h"
#include "parts.h"

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

/* A record's functions, whatever its type: parts.json's records are
 * written as three files. */
struct RecordOps {
  void *(*read)(const char *json, size_t length);
  void *(*deserialize)(const Json::Value &in);
  Json::Value *(*serialize)(void *value, Json::Value &out);
  void (*copier)(void **slot, void *value);
  void (*deleter)(void *value);
};

std::string written(const RecordOps &ops, void *value) {
  std::unique_ptr<void, void (*)(void *)> guard(value, ops.deleter);
  if (value == nullptr)
    return "null";
  Json::Value out;
  ops.serialize(value, out);
  return Json::writeString(Json::StreamWriterBuilder(), out);
}

template <typename R>
RecordOps record_ops(R *(*read)(const char *, size_t),
                     void *(*deserialize)(const Json::Value &),
                     Json::Value *(*serialize)(void *, Json::Value &),
                     void (*copier)(void **, void *), void (*deleter)(void *)) {
  static R *(*typed)(const char *, size_t) = read;
  return {[](const char *json, size_t length) -> void * {
            return typed(json, length);
          },
          deserialize, serialize, copier, deleter};
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
  EXPECT_STREQ(node_getAddress(node.get()), "192.0.2.1");
  EXPECT_EQ(list_get_nb_elements(
                static_cast<list_s *>(list_get(node_getGrid(node.get()), 0))),
            1);
}

/* Runs `body` with allocation 1, 2, ... failing until none fails; every
 * outcome must be allowed (the sanitizers see leaks). */
void each_failure(const std::function<std::string()> &body,
                  const std::set<std::string> &allowed) {
  for (int n = 1;; n++) {
    std::string outcome;
    int made = with_failing_malloc(n, [&] { outcome = body(); });
    EXPECT_EQ(allowed.count(outcome), 1u)
        << "allocation " << n << ": " << outcome;
    if (made < n)
      return;
  }
}

std::string made(Node *node) {
  NodeHandle guard(node, Node_deleter);
  return node == nullptr ? "null" : text(node);
}

TEST(Generated, EveryAllocationFailingInTurnGivesNullOrTheWhole) {
  NodeHandle node = full();
  const std::string json = text(node.get()), empty = made(Node_new());
  each_failure([] { return made(Node_new()); }, {"null", empty});
  each_failure(
      [&] { return made(static_cast<Node *>(Node_deserialize(parse(json)))); },
      {"null", json});
  Json::StreamWriterBuilder writer;
  writer["indentation"] = "";
  const std::string tight = Json::writeString(writer, parse(json));
  for (const std::string *read : {&json, &tight})
    each_failure([&] { return made(Node_read(read->data(), read->size())); },
                 {"null", json});
  each_failure(
      [&] {
        void *copy = nullptr;
        Node_copier(&copy, node.get());
        return made(static_cast<Node *>(copy));
      },
      {"null", json});
}

/* One record of each file, each holding records of the other two; and a
 * call of the first file sending and reading a record of another. */
TEST(GeneratedParts, EachFileReadsWritesAndCopiesRecordsOfTheOthers) {
  const std::string address = R"({"__type__": "Address", "__properties__": {
      "street": "Elm", "ip": {"__type__": "IP", "__value__": "192.0.2.3"}}})";
  const std::string order = R"({"__type__": "Order", "__properties__": {
      "id": {"__type__": "Long", "__value__": "7"}, "paid": true,
      "customer": {"__type__": "Customer", "__properties__": {"name": "ann",
                   "home": )" +
                            address + R"(}},
      "notes": {"__type__": "Dict", "__sub_type__": "Date",
                "__elements__": {"a": {"__type__": "Date", "__value__": -86400.0}}},
      "invoices": {"__type__": "List", "__sub_type__": "Invoice", "__elements__": [
          {"__type__": "Invoice", "__properties__": {
           "total": {"__type__": "Double", "__value__": "2.500000"},
           "billing": )" + address +
                            R"(}}]}}})";
  const struct {
    RecordOps ops;
    std::string json;
  } cases[] = {{record_ops(Address_read, Address_deserialize, Address_serialize,
                           Address_copier, Address_deleter),
                R"({"__type__": "Address", "__properties__": {"street": "x",
           "owner": {"__type__": "Customer", "__properties__": {"orders":
             {"__type__": "ResultSet", "__sub_type__": "Order",
              "__total_items__": 3, "__elements__": [)" +
                    order + "]}}}}}"},
               {record_ops(Order_read, Order_deserialize, Order_serialize,
                           Order_copier, Order_deleter),
                order},
               {record_ops(Invoice_read, Invoice_deserialize, Invoice_serialize,
                           Invoice_copier, Invoice_deleter),
                R"({"__type__": "Invoice", "__properties__": {
           "code": {"__type__": "Long", "__value__": "18446744073709551615"},
           "lines": {"__type__": "List", "__sub_type__": "List", "__elements__": [
             {"__type__": "List", "__sub_type__": "Time", "__elements__": [
               {"__type__": "Time", "__value__": 1700000000.0}]}]},
           "order": )" +
                    order + "}}"}};
  for (const auto &c : cases) {
    std::string json =
        Json::writeString(Json::StreamWriterBuilder(), parse(c.json));
    void *copy = nullptr, *read = c.ops.read(c.json.data(), c.json.size());
    c.ops.copier(&copy, read);
    EXPECT_EQ(written(c.ops, read), json);
    EXPECT_EQ(written(c.ops, c.ops.deserialize(parse(c.json))), json);
    EXPECT_EQ(written(c.ops, copy), json);
  }
  std::unique_ptr<Order, void (*)(void *)> read(
      Order_read(order.data(), order.size()), Order_deleter);
  const Invoice *invoice =
      static_cast<Invoice *>(list_get(order_getInvoices(read.get()), 0));
  EXPECT_STREQ(address_getStreet(invoice_getBilling(invoice)), "Elm");
  EXPECT_STREQ(
      address_getStreet(customer_getHome(order_getCustomer(read.get()))),
      "Elm");
  DevserverProcess server(VELMORA_DEVSERVER,
                          {"--user", "u", "--password", "p"});
  std::unique_ptr<client_context_s, void (*)(client_context_s *)> context(
      client_context_new(), client_context_free);
  client_context_set_port(context.get(), server.port());
  client_context_set_user(context.get(), "u");
  client_context_set_password(context.get(), "p");
  Order *echoed = nullptr;
  ASSERT_EQ(order_get(context.get(), read.get(), &echoed), 0);
  EXPECT_EQ(written(cases[1].ops, echoed),
            written(cases[1].ops, read.release()));
}

} // namespace
