/* The tools and the example against a running velmora-devserver. */
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <json/json.h>
#include <openssl/sha.h>

#include "process.h"

namespace {

const std::vector<std::string> accounts = {
    "--user",  "alice", "--password", "wonderland",        //
    "--user",  "bob",   "--token",    "t0k3n:with:colons", //
    "--user",  "carol", "--password", "pw",
    "--token", "tk"};

std::vector<std::string> operator+(std::vector<std::string> a,
                                   const std::vector<std::string> &b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

Json::Value parse(const std::string &text) {
  Json::Value value;
  std::string error;
  std::unique_ptr<Json::CharReader> reader(
      Json::CharReaderBuilder().newCharReader());
  if (!reader->parse(text.data(), text.data() + text.size(), &value, &error))
    ADD_FAILURE() << "not JSON: " << text;
  return value;
}

int lines(const std::string &text) {
  return static_cast<int>(std::count(text.begin(), text.end(), '\n'));
}

std::string sha1_hex(const std::string &text) {
  unsigned char digest[SHA_DIGEST_LENGTH];
  SHA1(reinterpret_cast<const unsigned char *>(text.data()), text.size(),
       digest);
  char hex[41];
  for (int i = 0; i < SHA_DIGEST_LENGTH; i++)
    snprintf(hex + 2 * i, 3, "%02x", digest[i]);
  return hex;
}

class E2e : public ::testing::Test {
protected:
  /* A server with the three accounts and `options`; the test then talks to
   * it with request(). */
  void start(const std::vector<std::string> &options = {}) {
    server_ = std::make_unique<Devserver>(accounts + options);
    ASSERT_GT(server_->port(), 0) << server_->log();
  }

  void TearDown() override {
    /* A clean exit: no crash, and no leak under the sanitizers. */
    if (server_) {
      EXPECT_EQ(server_->stop(), 0) << server_->log();
    }
  }

  Output request(const std::vector<std::string> &options,
                 const std::string &path,
                 const std::vector<std::string> &body = {}) {
    return run(std::vector<std::string>{VELMORA_REQUEST, "--port",
                                        std::to_string(server_->port())} +
               options + std::vector<std::string>{path} + body);
  }

  /* /items/list as alice with the given ListInfo "__properties__". */
  Output list(const std::string &properties) {
    return request(
        {"--user", "alice", "--password", "wonderland"}, "/items/list",
        {R"({"list_info": {"__type__": "ListInfo", "__properties__": )" +
         properties + "}}"});
  }

  std::unique_ptr<Devserver> server_;
};

TEST_F(E2e, SigningSchemesAndRefusals) {
  start();
  const struct {
    std::vector<std::string> options;
    int status;
  } cases[] = {
      {{"--user", "alice", "--password", "wonderland"}, 0},
      {{"--user", "alice", "--password-hash", sha1_hex("wonderland")}, 0},
      {{"--user", "bob", "--token", "t0k3n:with:colons"}, 0},
      {{"--user", "carol", "--password", "pw"}, 0},
      {{"--user", "carol", "--token", "tk"}, 0},
      {{"--user", "alice", "--password", "wonderlanD"}, 67},
      {{"--user", "alice", "--token", "wonderland"}, 67},
      {{"--user", "bob", "--token", "t0k3n"}, 67},
      {{"--user", "bob", "--password", "t0k3n:with:colons"}, 67},
      {{"--user", "mallory", "--password", "wonderland"}, 67},
      {{}, 67},
  };
  for (const auto &c : cases) {
    std::string label =
        c.options.empty() ? "unsigned" : c.options[1] + " " + c.options[2];
    Output r = request(c.options, "/echo", {"{\"ping\": [1, 2]}"});
    EXPECT_EQ(r.status, c.status) << label << ": " << r.err;
    if (c.status == 0) {
      EXPECT_EQ(r.out, "{\"ping\": [1, 2]}") << label;
      EXPECT_EQ(r.err, "") << label;
    } else {
      EXPECT_EQ(r.out, "") << label;
      EXPECT_EQ(lines(r.err), 1) << label << ": " << r.err;
    }
  }
}

TEST_F(E2e, LocalAuthKeyIsRequiredWhenConfigured) {
  start({"--auth-key", "k-123"});
  std::vector<std::string> alice = {"--user", "alice", "--password",
                                    "wonderland"};
  EXPECT_EQ(
      request(alice + std::vector<std::string>{"--auth-key", "k-123"}, "/echo")
          .status,
      0);
  EXPECT_EQ(
      request(alice + std::vector<std::string>{"--auth-key", "k-124"}, "/echo")
          .status,
      67);
  EXPECT_EQ(request(alice + std::vector<std::string>{"--auth-key", ""}, "/echo")
                .status,
            67);
}

TEST_F(E2e, ClockDifferencesAreResynchronised) {
  for (const char *offset : {"3600", "-7200", "200"}) {
    start({"--clock-offset", offset});
    Output r = request({"--user", "bob", "--token", "t0k3n:with:colons"},
                       "/echo", {"x"});
    EXPECT_EQ(r.status, 0) << offset << ": " << r.err;
    EXPECT_EQ(r.out, "x");
    EXPECT_EQ(server_->stop(), 0);
    std::string log = server_->log();
    /* 200 s is within the allowed skew: no refusal at all. */
    bool refused = log.find("401 auth_error 1: date") != std::string::npos;
    EXPECT_EQ(refused, std::string(offset) != "200") << log;
    EXPECT_NE(log.find("POST /echo bob 200 ok"), std::string::npos) << log;
    server_.reset();
  }
}

/* The whole catalogue in id order, as the oracle for the paging cases. */
std::vector<Json::Value> catalogue(const Json::Value &reply) {
  std::vector<Json::Value> items;
  for (const Json::Value &item : reply["result"]["__elements__"])
    items.push_back(item["__properties__"]);
  return items;
}

std::string field(const Json::Value &item, const std::string &name) {
  const Json::Value &v = item[name];
  if (name == "name")
    return v.asString();
  if (name == "created")
    return std::to_string(v["__value__"].asInt64());
  return v["__value__"].asString();
}

TEST_F(E2e, ItemsAreWellFormedTypedValues) {
  start();
  Output r = list(R"({"limit": 0, "offset": 0})");
  ASSERT_EQ(r.status, 0) << r.err;
  Json::Value reply = parse(r.out);
  const Json::Value &result = reply["result"];
  EXPECT_EQ(result["__type__"], "ResultSet");
  EXPECT_EQ(result["__sub_type__"], "Item");
  EXPECT_EQ(result["__total_items__"], 40);
  ASSERT_EQ(result["__elements__"].size(), 40u);
  for (Json::ArrayIndex i = 0; i < 40; i++) {
    const Json::Value &item = result["__elements__"][i];
    EXPECT_EQ(item["__type__"], "Item");
    const Json::Value &p = item["__properties__"];
    EXPECT_EQ(p["id"]["__type__"], "Long");
    EXPECT_EQ(p["id"]["__value__"], std::to_string(i + 1));
    EXPECT_TRUE(p["name"].isString());
    EXPECT_EQ(p["address"]["__type__"], "IP");
    EXPECT_EQ(p["address"]["__value__"].asString().rfind("192.0.2.", 0), 0u);
    EXPECT_EQ(p["created"]["__type__"], "Date");
    EXPECT_TRUE(p["created"]["__value__"].isNumeric());
  }
}

TEST_F(E2e, PagingOrderingAndSearch) {
  start();
  Output all = list(R"({"limit": 0, "offset": 0})");
  ASSERT_EQ(all.status, 0) << all.err;
  const std::vector<Json::Value> items = catalogue(parse(all.out));
  ASSERT_EQ(items.size(), 40u);

  const struct {
    std::string order_by; /* empty: no order given */
    bool asc;
    int limit, offset;
    std::string search_field, search_value; /* empty: no search */
  } cases[] = {
      {"", true, 5, 0, "", ""},
      {"name", true, 5, 10, "", ""},
      {"name", false, 7, 0, "", ""},
      {"created", true, 10, 35, "", ""},
      {"id", false, 3, 0, "", ""},
      {"address", true, 0, 0, "", ""},
      {"name", true, 4, 2, "address", "192.0.2.2"},
      {"", true, 0, 0, "name", "quartz"},
      {"id", true, 5, 0, "address", "198.51.100.1"},
      {"name", true, 5, 100, "", ""},
  };
  for (const auto &c : cases) {
    std::ostringstream properties;
    properties << R"({"limit": )" << c.limit << R"(, "offset": )" << c.offset;
    if (!c.order_by.empty())
      properties
          << R"(, "order": {"__type__": "Ordering", "__properties__": {"asc": )"
          << (c.asc ? "true" : "false") << R"(, "order_by": ")" << c.order_by
          << R"("}})";
    if (!c.search_field.empty())
      properties
          << R"(, "search_parameters": {"__type__": "Dict", "__sub_type__": )"
          << R"("Unicode", "__elements__": {")" << c.search_field << R"(": ")"
          << c.search_value << R"("}})";
    properties << "}";
    SCOPED_TRACE(properties.str());

    std::vector<Json::Value> expected;
    for (const Json::Value &item : items)
      if (c.search_field.empty() ||
          field(item, c.search_field) == c.search_value)
        expected.push_back(item);
    if (!c.order_by.empty())
      std::stable_sort(expected.begin(), expected.end(),
                       [&](const Json::Value &a, const Json::Value &b) {
                         auto key = [&](const Json::Value &v) {
                           return c.order_by == "id" || c.order_by == "created"
                                      ? std::stoll(field(v, c.order_by))
                                      : 0LL;
                         };
                         if (key(a) != key(b))
                           return c.asc ? key(a) < key(b) : key(b) < key(a);
                         std::string x = field(a, c.order_by),
                                     y = field(b, c.order_by);
                         return c.asc ? x < y : y < x;
                       });
    size_t first = std::min<size_t>(c.offset, expected.size());
    size_t end = c.limit == 0
                     ? expected.size()
                     : std::min<size_t>(first + c.limit, expected.size());

    Output r = list(properties.str());
    ASSERT_EQ(r.status, 0) << r.err;
    Json::Value result = parse(r.out)["result"];
    EXPECT_EQ(result["__total_items__"].asUInt(), expected.size());
    std::vector<std::string> got, want;
    for (const Json::Value &item : result["__elements__"])
      got.push_back(field(item["__properties__"], "id"));
    for (size_t i = first; i < end; i++)
      want.push_back(field(expected[i], "id"));
    EXPECT_EQ(got, want);
  }
}

TEST_F(E2e, BadBodiesGet400AndTheServerKeepsServing) {
  start();
  const std::string deep(5000, '[');
  const std::string with_nul("{\"list_info\"\0: {}}", 18);
  const struct {
    std::string body;
    int status;
  } cases[] = {
      {"{not json", 400},
      {"", 400},
      {"{} trailing", 400},
      {deep, 400},
      {with_nul, 400},
      {"[]", 400},
      {R"({"list_info": 5})", 400},
      {R"({"list": {}})", 400},
      {R"({"list_info": {"__properties__": "x"}})", 400},
      {R"({"list_info": {"__properties__": {"limit": "ten"}}})", 400},
      {R"({"list_info": {"__properties__": {"limit": -1}}})", 400},
      {R"({"list_info": {"__properties__": {"offset": 1e30}}})", 400},
      {R"({"list_info": {"__properties__": {"order": {"__properties__": )"
       R"({"asc": true, "order_by": "colour"}}}}})",
       400},
      {R"({"list_info": {"__properties__": {"order": {"__properties__": 7}}}})",
       400},
      {R"({"list_info": {"__properties__": {"search_parameters": {"__sub_type__": )"
       R"("Unicode", "__elements__": {"colour": "red"}}}}})",
       400},
      {R"({"list_info": {"__properties__": {"search_parameters": {"__sub_type__": )"
       R"("Unicode", "__elements__": {"name": {}}}}}})",
       400},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.body.substr(0, 80));
    Output r =
        run({VELMORA_REQUEST, "--port", std::to_string(server_->port()),
             "--user", "alice", "--password", "wonderland", "/items/list", "-"},
            c.body);
    EXPECT_EQ(r.status, 22) << r.err;
    Json::Value reply = parse(r.out);
    EXPECT_EQ(reply["status"], c.status);
    EXPECT_TRUE(reply["error"].isString());
  }
  Output unknown = request({"--user", "alice", "--password", "wonderland"},
                           "/items/lost", {"{}"});
  EXPECT_EQ(unknown.status, 22);
  EXPECT_EQ(parse(unknown.out)["status"], 404);

  Output good = list(R"({"limit": 1})");
  EXPECT_EQ(good.status, 0) << good.err;
  EXPECT_EQ(parse(good.out)["result"]["__elements__"].size(), 1u);
}

TEST_F(E2e, LogsOneLinePerRequest) {
  start();
  request({"--user", "alice", "--password", "wonderland"}, "/echo", {"hi"});
  request({"--user", "alice", "--password", "wrong"}, "/echo", {"hi"});
  request({"--user", "carol", "--token", "tk"}, "/nowhere", {"hi"});
  EXPECT_EQ(server_->stop(), 0);
  std::string log = server_->log();
  std::istringstream stream(log);
  std::vector<std::string> entries;
  for (std::string line; std::getline(stream, line);)
    if (line.rfind("POST ", 0) == 0)
      entries.push_back(line);
  /* Each line is written once its reply is sent, so two close requests
   * may log in either order. */
  std::sort(entries.begin(), entries.end());
  EXPECT_EQ(entries, (std::vector<std::string>{
                         "POST /echo alice 200 ok",
                         "POST /echo alice 401 auth_error 2: wrong signature",
                         "POST /nowhere carol 404 unknown path"}))
      << log;
}

TEST_F(E2e, ExampleShowsResynchronisationAndAPage) {
  start({"--clock-offset", "3600"});
  Output all = list(R"({"limit": 0})");
  ASSERT_EQ(all.status, 0);
  std::vector<std::string> names;
  for (const Json::Value &item : catalogue(parse(all.out)))
    if (field(item, "address") == "192.0.2.3")
      names.push_back(item["name"].asString());
  std::sort(names.begin(), names.end());
  ASSERT_EQ(names.size(), 10u);

  Output r = run({VELMORA_EXAMPLE, "--port", std::to_string(server_->port()),
                  "--user", "alice", "--password", "wonderland"});
  ASSERT_EQ(r.status, 0) << r.out << r.err;
  long long before = 1, after = 0;
  ASSERT_EQ(sscanf(r.out.c_str(),
                   "clock_offset before the call: %lld s\n"
                   "clock_offset after the call: %lld s",
                   &before, &after),
            2)
      << r.out;
  EXPECT_EQ(before, 0);
  EXPECT_NEAR(after, 3600, 1);
  EXPECT_NE(r.out.find("5 of 10 items"), std::string::npos) << r.out;
  size_t at = 0;
  for (int i = 0; i < 5; i++) {
    at = r.out.find(" " + names[i] + " ", at);
    EXPECT_NE(at, std::string::npos) << names[i] << " in order in\n" << r.out;
  }
}

TEST(E2eTools, TransferFailureExits7) {
  Output r = run(
      {VELMORA_REQUEST, "--port", std::to_string(unused_port()), "/echo", "x"});
  EXPECT_EQ(r.status, 7);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(lines(r.err), 1) << r.err;
  EXPECT_NE(r.err.find("Error: [7]"), std::string::npos) << r.err;
}

TEST(E2eTools, CommandLine) {
  Output help = run({VELMORA_REQUEST, "--help"});
  EXPECT_EQ(help.status, 0);
  for (const char *code : {" 0 ", "22 ", " 7 ", "67 "})
    EXPECT_NE(help.out.find(code), std::string::npos) << code;
  const std::vector<std::vector<std::string>> bad = {
      {},
      {"echo"},
      {"--port", "70000", "/echo"},
      {"--password", "a", "--token", "b", "/echo"},
      {"--password-hash", "abc", "/echo"},
      {"/echo", "@/nonexistent/body"},
      {"/echo", "a", "b"},
      {"--frobnicate", "/echo"},
  };
  for (const auto &args : bad) {
    Output r = run(std::vector<std::string>{VELMORA_REQUEST} + args);
    EXPECT_EQ(r.status, 2) << ::testing::PrintToString(args);
    EXPECT_EQ(r.out, "");
  }
  Output server_help = run({VELMORA_DEVSERVER, "--help"});
  EXPECT_EQ(server_help.status, 0);
  EXPECT_EQ(run({VELMORA_DEVSERVER, "--password", "x"}).status, 2);
  EXPECT_EQ(run({VELMORA_DEVSERVER, "--port", "-1"}).status, 2);
}

} // namespace
