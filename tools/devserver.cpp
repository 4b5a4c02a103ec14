/*
 * velmora-devserver: a local stand-in for the remote service, to develop,
 * demonstrate and test against. It checks every request the way the
 * service does (signature, local key, date) with OpenSSL, independently of
 * the library's own digests, and answers with the library's typed values.
 */
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <getopt.h>
#include <memory>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include <httplib.h>
#include <json/json.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/sha.h>
#include <velmora/velmora.h>

#include "devserver_script.h"
#include "items.h"

namespace {

const char *const date_format = "%a, %d %b %Y %H:%M:%S %Z";
const long max_date_skew = 300;
const size_t max_body = 8 << 20;
/* Every connection has a worker of its own, so that idle or slow clients
 * cannot hold the others up; idle ones are dropped after a few seconds. */
const size_t worker_threads = 512;
const time_t idle_seconds = 2;

struct Account {
  std::string name;
  std::string password_sha1; /* hex; empty when the account has no password */
  bool has_password = false;
  std::string token;
  bool has_token = false;
};

struct Config {
  int port = 8888;
  long clock_offset = 0;
  std::vector<Account> accounts;
  std::string auth_key;
  bool require_auth_key = false;
  bool log_json = false;
  devserver::Script script;
};

using ItemHandle = std::unique_ptr<Item, void (*)(void *)>;

/* The outcome of a request, as the log line tells it. */
struct Note {
  std::string user = "-";
  std::string detail;
};
/* httplib runs each request's handler and logger on one worker thread. */
thread_local Note note;

/* ---- Dates ------------------------------------------------------------- */

time_t server_now(const Config &config) {
  return time(nullptr) + config.clock_offset;
}

std::string render_date(time_t when) {
  struct tm local;
  char text[64] = "";
  if (localtime_r(&when, &local) != nullptr)
    strftime(text, sizeof text, date_format, &local);
  return text;
}

/* Seconds from the server's clock to `text`, with both read as times of
 * one zone, as the client compares them. False when `text` is no date. */
bool date_skew(const std::string &text, const Config &config, long *skew) {
  struct tm client {};
  const char *end = strptime(text.c_str(), date_format, &client);
  if (end == nullptr || *end != '\0')
    return false;
  time_t now = server_now(config);
  struct tm server;
  if (localtime_r(&now, &server) == nullptr)
    return false;
  client.tm_isdst = server.tm_isdst = 0;
  *skew = static_cast<long>(timegm(&client) - timegm(&server));
  return true;
}

/* ---- Signatures -------------------------------------------------------- */

std::string hex(const unsigned char *bytes, size_t count) {
  static const char digits[] = "0123456789abcdef";
  std::string text;
  for (size_t i = 0; i < count; i++) {
    text += digits[bytes[i] >> 4];
    text += digits[bytes[i] & 15];
  }
  return text;
}

std::string base64(const std::string &bytes) {
  std::string text(4 * ((bytes.size() + 2) / 3) + 1, '\0');
  int n = EVP_EncodeBlock(reinterpret_cast<unsigned char *>(&text[0]),
                          reinterpret_cast<const unsigned char *>(bytes.data()),
                          static_cast<int>(bytes.size()));
  text.resize(n);
  return text;
}

bool unbase64(const std::string &text, std::string *bytes) {
  if (text.size() % 4 != 0 || text.size() > 4096)
    return false;
  std::string out(text.size() / 4 * 3 + 1, '\0');
  int n = EVP_DecodeBlock(reinterpret_cast<unsigned char *>(&out[0]),
                          reinterpret_cast<const unsigned char *>(text.data()),
                          static_cast<int>(text.size()));
  if (n < 0)
    return false;
  /* EVP_DecodeBlock counts the padding as zero bytes. */
  for (size_t i = text.size(); i > 0 && text[i - 1] == '='; i--)
    n--;
  out.resize(n < 0 ? 0 : n);
  *bytes = out;
  return true;
}

bool same_text(const std::string &a, const std::string &b) {
  return a.size() == b.size() &&
         CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

const Account *find_account(const Config &config, const std::string &name) {
  for (const Account &account : config.accounts)
    if (account.name == name)
      return &account;
  return nullptr;
}

/*
 * 0 when the request is signed by a known account and dated within the
 * allowed skew; otherwise the "auth_error" value to answer (1: the date,
 * 2: anything else), with the reason in the request's note.
 */
int authenticate(const httplib::Request &req, const std::string &body,
                 const Config &config) {
  if (config.require_auth_key &&
      (!req.has_header("LOCAL_AUTH_KEY") ||
       !same_text(req.get_header_value("LOCAL_AUTH_KEY"), config.auth_key))) {
    note.detail = "wrong local auth key";
    return 2;
  }
  std::string line = req.get_header_value("AUTHENTICATION");
  bool token_scheme;
  if (line.rfind("HMAC-SHA1-DATE ", 0) == 0) {
    token_scheme = false;
    line.erase(0, strlen("HMAC-SHA1-DATE "));
  } else if (line.rfind("TOKEN-DATE ", 0) == 0) {
    token_scheme = true;
    line.erase(0, strlen("TOKEN-DATE "));
  } else {
    note.detail = line.empty() ? "unsigned request" : "unknown scheme";
    return 2;
  }
  /* Base64 has no colon, so the user ends at the first one and the
   * signature starts after the last; a token may hold colons. */
  size_t first = line.find(':'), last = line.rfind(':');
  std::string user;
  if (first == std::string::npos || (token_scheme && first == last) ||
      !unbase64(line.substr(0, first), &user)) {
    note.detail = "malformed AUTHENTICATION";
    return 2;
  }
  note.user = user;
  const Account *account = find_account(config, user);
  if (account == nullptr) {
    note.detail = "unknown user";
    return 2;
  }
  std::string key;
  if (token_scheme) {
    std::string token = line.substr(first + 1, last - first - 1);
    if (!account->has_token || !same_text(token, account->token)) {
      note.detail = "wrong token";
      return 2;
    }
    key = account->token;
  } else {
    if (!account->has_password) {
      note.detail = "account has no password";
      return 2;
    }
    key = account->password_sha1;
  }
  if (!req.has_header("Date")) {
    note.detail = "no Date header";
    return 2;
  }
  std::string date = req.get_header_value("Date");
  std::string signed_text =
      "POST " + req.target + "\nDate: " + date + "\n" + body;
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  HMAC(EVP_sha1(), key.data(), static_cast<int>(key.size()),
       reinterpret_cast<const unsigned char *>(signed_text.data()),
       signed_text.size(), digest, &length);
  std::string expected =
      base64(std::string(reinterpret_cast<char *>(digest), length));
  if (!same_text(line.substr(last + 1), expected)) {
    note.detail = "wrong signature";
    return 2;
  }
  long skew;
  if (!date_skew(date, config, &skew)) {
    note.detail = "unreadable Date";
    return 2;
  }
  if (skew > max_date_skew || skew < -max_date_skew) {
    note.detail = "date " + std::to_string(skew < 0 ? -skew : skew) + " s " +
                  (skew < 0 ? "behind" : "ahead");
    return 1;
  }
  return 0;
}

/* ---- Replies ----------------------------------------------------------- */

std::string render(const Json::Value &value) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  return Json::writeString(builder, value);
}

void answer_error(httplib::Response &res, int status, const std::string &why) {
  Json::Value body;
  body["error"] = why;
  body["status"] = status;
  res.status = status;
  res.set_content(render(body), "application/json");
  if (note.detail.empty())
    note.detail = why;
}

/* ---- The catalogue ----------------------------------------------------- */

enum class Field { id, name, address, created };

bool field_named(const std::string &name, Field *field) {
  static const struct {
    const char *name;
    Field field;
  } fields[] = {{"id", Field::id},
                {"name", Field::name},
                {"address", Field::address},
                {"created", Field::created}};
  for (const auto &f : fields)
    if (name == f.name) {
      *field = f.field;
      return true;
    }
  return false;
}

std::string field_text(const Item *item, Field field) {
  switch (field) {
  case Field::id:
    return std::to_string(Long_getValue(item->id));
  case Field::name:
    return item->name;
  case Field::address:
    return ip_getValue(item->address);
  case Field::created:
    return std::to_string(item->created->value);
  }
  return "";
}

int compare_field(const Item *a, const Item *b, Field field) {
  auto order = [](auto x, auto y) { return x < y ? -1 : y < x ? 1 : 0; };
  switch (field) {
  case Field::id:
    return order(Long_getValue(a->id), Long_getValue(b->id));
  case Field::created:
    return order(a->created->value, b->created->value);
  case Field::name:
  case Field::address:
    return field_text(a, field).compare(field_text(b, field));
  }
  return 0;
}

/* Forty items whose id, name, address and date orders all differ, so that
 * sorting by any field is visible. */
std::vector<ItemHandle> make_catalogue() {
  static const char *const names[] = {
      "agate",    "amber",    "basalt",    "beryl",    "calcite",   "chalk",
      "cinnabar", "coral",    "diamond",   "dolomite", "emerald",   "feldspar",
      "flint",    "garnet",   "gneiss",    "granite",  "gypsum",    "hematite",
      "jade",     "jasper",   "kyanite",   "lapis",    "malachite", "marble",
      "mica",     "obsidian", "olivine",   "onyx",     "opal",      "pumice",
      "pyrite",   "quartz",   "ruby",      "sapphire", "schist",    "slate",
      "talc",     "topaz",    "turquoise", "zircon"};
  const int count = sizeof names / sizeof names[0];
  std::vector<ItemHandle> items;
  for (int i = 0; i < count; i++) {
    std::string address = "192.0.2." + std::to_string(1 + i % 4);
    int64_t created = 1700000000 + int64_t{86400} * ((i * 13) % count);
    int64_t id = i + 1;
    items.emplace_back(Item_new(), Item_deleter);
    item_setId(items.back().get(), &id);
    item_setName(items.back().get(), names[(i * 17) % count]);
    item_setAddress(items.back().get(), address.c_str());
    item_setCreated(items.back().get(), &created);
  }
  return items;
}

/* ---- Operations -------------------------------------------------------- */

bool parse_json(const std::string &text, Json::Value *value, std::string *why) {
  Json::CharReaderBuilder builder;
  Json::CharReaderBuilder::strictMode(&builder.settings_);
  std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  try {
    if (reader->parse(text.data(), text.data() + text.size(), value, why))
      return true;
  } catch (const std::exception &e) {
    *why = e.what();
  }
  /* jsoncpp writes "* Line 1, Column 2\n  Syntax error: ...\n". */
  std::string line;
  for (char c : *why)
    if (!isspace(static_cast<unsigned char>(c)) ||
        (!line.empty() && line.back() != ' '))
      line += isspace(static_cast<unsigned char>(c)) ? ' ' : c;
  while (!line.empty() && line.back() == ' ')
    line.pop_back();
  *why = line;
  return false;
}

void list_items(const std::vector<ItemHandle> &catalogue,
                const std::string &body, httplib::Response &res) {
  Json::Value document;
  std::string why;
  if (!parse_json(body, &document, &why))
    return answer_error(res, 400, "malformed JSON: " + why);
  if (!document.isObject() || !document["list_info"].isObject())
    return answer_error(res, 400,
                        "the body must be {\"list_info\": <ListInfo>}");

  std::unique_ptr<ListInfo, void (*)(void *)> info(nullptr, ListInfo_deleter);
  try {
    info.reset(
        static_cast<ListInfo *>(ListInfo_deserialize(document["list_info"])));
  } catch (const std::exception &e) {
    return answer_error(res, 400, std::string("bad list_info: ") + e.what());
  }
  int limit = listinfo_getLimit(info.get());
  int offset = listinfo_getOffset(info.get());
  if (limit < 0 || offset < 0)
    return answer_error(res, 400, "limit and offset must not be negative");

  std::vector<const Item *> found;
  for (const ItemHandle &item : catalogue)
    found.push_back(item.get());

  dict_s *search = listinfo_getSearch_parameters(info.get());
  char **keys;
  int32_t count;
  dict_keys(search, &keys, &count);
  std::vector<std::string> names(keys, keys + count);
  free(keys);
  for (const std::string &name : names) {
    Field field;
    if (!field_named(name, &field))
      return answer_error(res, 400, "unknown search field \"" + name + "\"");
    std::string wanted = static_cast<char *>(dict_get(search, name.c_str()));
    found.erase(std::remove_if(found.begin(), found.end(),
                               [&](const Item *item) {
                                 return field_text(item, field) != wanted;
                               }),
                found.end());
  }

  Ordering *order = listinfo_getOrder(info.get());
  const char *order_by = ordering_getOrder_by(order);
  if (order_by != nullptr && *order_by != '\0') {
    Field field;
    if (!field_named(order_by, &field))
      return answer_error(
          res, 400, std::string("unknown order field \"") + order_by + "\"");
    bool ascending = ordering_getAsc(order) == 1;
    std::stable_sort(found.begin(), found.end(),
                     [&](const Item *a, const Item *b) {
                       int c = compare_field(a, b, field);
                       return ascending ? c < 0 : c > 0;
                     });
  }

  /* A limit of 0, as a fresh ListInfo has, means the rest of the list. */
  size_t first = std::min(found.size(), static_cast<size_t>(offset));
  size_t end = limit == 0
                   ? found.size()
                   : std::min(found.size(), first + static_cast<size_t>(limit));
  std::unique_ptr<result_set_s, void (*)(void *)> page(
      result_set_new("Item", Item_deleter, Item_deserialize, Item_serialize,
                     Item_copier),
      result_set_del);
  for (size_t i = first; i < end; i++)
    result_set_add(page.get(), const_cast<Item *>(found[i]));
  result_set_set_total_items(page.get(), static_cast<int32_t>(found.size()));

  Json::Value reply;
  result_set_serialize(page.get(), reply["result"]);
  res.set_content(render(reply), "application/json");
  note.detail = "ok, " + std::to_string(end - first) + " of " +
                std::to_string(found.size()) + " items";
}

void refuse(const Config &config, int auth_error, httplib::Response &res) {
  res.set_header("auth_error", std::to_string(auth_error));
  if (auth_error == 1)
    res.set_header("Date", render_date(server_now(config)));
  std::string why = note.detail;
  note.detail = "auth_error " + std::to_string(auth_error) + ": " + why;
  answer_error(res, 401, why);
}

/* True when the fault is the whole answer; a delay lets the request go on. */
bool inject(const Config &config, const devserver::Fault &fault,
            httplib::Response &res) {
  using Kind = devserver::Fault::Kind;
  switch (fault.kind) {
  case Kind::status:
    answer_error(res, fault.status, "injected fault");
    return true;
  case Kind::auth_error:
    note.detail = "injected date refusal";
    refuse(config, 1, res);
    return true;
  case Kind::delay:
    devserver::pause(config.script, fault.delay_ms);
    return false;
  case Kind::close:
    /* Promises more than it sends, then gives up: httplib closes the
     * connection in the middle of the body. */
    res.set_content_provider(1000, "application/json",
                             [](size_t, size_t, httplib::DataSink &sink) {
                               sink.write("{\"cut\": ", 8);
                               return false;
                             });
    note.detail = "injected cut reply";
    return true;
  case Kind::hang:
    devserver::pause(config.script, -1);
    note.detail = "injected hang";
    return true;
  }
  return false;
}

void serve(const Config &config, const std::vector<ItemHandle> &catalogue,
           const httplib::Request &req, const std::string &body,
           httplib::Response &res) {
  const devserver::Fault *fault = devserver::due_fault(config.script, req.path);
  if (fault != nullptr && inject(config, *fault, res))
    return;
  int auth_error = authenticate(req, body, config);
  if (auth_error != 0)
    return refuse(config, auth_error, res);
  auto route = config.script.routes.find(req.path);
  if (route != config.script.routes.end()) {
    res.set_content(route->second, "application/json");
    note.detail = "ok, route";
  } else if (req.path == "/echo") {
    std::string type = req.get_header_value("Content-Type");
    res.set_content(body,
                    type.empty() ? "application/octet-stream" : type.c_str());
    note.detail = "ok";
  } else if (req.path == "/items/list") {
    list_items(catalogue, body, res);
  } else {
    answer_error(res, 404, "unknown path");
  }
}

/* Log text keeps to one line of ASCII whatever a client sends. */
std::string printable(const std::string &text) {
  std::string out;
  for (unsigned char c : text.substr(0, 200)) {
    if (c >= 32 && c < 127 && c != '\\') {
      out += static_cast<char>(c);
    } else {
      char escape[5];
      snprintf(escape, sizeof escape, "\\x%02x", c);
      out += escape;
    }
  }
  return out.empty() ? "-" : out;
}

/* ---- Command line ------------------------------------------------------ */

void usage(FILE *stream) {
  fputs(
      "Usage: velmora-devserver [--port N] [--user NAME (--password PW | "
      "--token TK)...]...\n"
      "                         [--auth-key KEY] [--clock-offset SECONDS]\n"
      "                         [--route PATH=FILE]... [--fault PATH:FAULT]...\n"
      "                         [--log json]\n"
      "\n"
      "A local stand-in for the service, on 127.0.0.1. Prints the port it\n"
      "listens on as the first line of standard output and one line per\n"
      "request (method, path, user, outcome) on standard error. Stops on\n"
      "SIGINT or SIGTERM.\n"
      "\n"
      "  --port N             port to listen on (default 8888; 0: any free "
      "one)\n"
      "  --user NAME          an account; the --password and --token options\n"
      "                       that follow belong to it (both may be given)\n"
      "  --password PW        the account signs with the password scheme\n"
      "  --token TK           the account signs with the token scheme\n"
      "  --auth-key KEY       require this LOCAL_AUTH_KEY on every request\n"
      "  --clock-offset S     run the server's clock S seconds ahead (or\n"
      "                       behind, when negative)\n"
      "  --route PATH=FILE    answer FILE's JSON for PATH (signatures are "
      "still\n"
      "                       checked)\n"
      "  --fault PATH:FAULT[,first=N]\n"
      "                       inject a fault on PATH, for the first N "
      "requests\n"
      "                       or all; FAULT is status=CODE (that status),\n"
      "                       auth-error=1 (a refused date, with the server's\n"
      "                       Date), delay=Ns or delay=Nms (then the answer),\n"
      "                       close (a cut reply) or hang (no answer at all)\n"
      "  --log json           log one JSON object per request\n"
      "  --help               this text\n"
      "  --version            print the version\n"
      "\n"
      "Operations (POST): /echo answers the body it got; /items/list takes\n"
      "{\"list_info\": <ListInfo>} and answers {\"result\": <ResultSet of "
      "Item>}\n"
      "from 40 items with the fields id, name, address and created. Limit 0\n"
      "means no limit; order_by and search_parameters name those fields.\n"
      "\n"
      "A port in use is refused. Each connection has a worker of its own; an\n"
      "idle one is closed after 2 s. Bodies over 8 MiB, chunked or not, get\n"
      "413.\n",
      stream);
}

bool parse_long(const char *text, long low, long high, long *value) {
  char *end;
  errno = 0;
  long v = strtol(text, &end, 10);
  if (errno != 0 || end == text || *end != '\0' || v < low || v > high)
    return false;
  *value = v;
  return true;
}

/* --route, --fault and --log; false after saying why. */
bool script_option(int option, const char *argument, Config *config) {
  std::string why;
  bool ok = option == 'r' ? devserver::add_route(config->script, argument, &why)
            : option == 'f'
                ? devserver::add_fault(config->script, argument, &why)
                : strcmp(argument, "json") == 0;
  if (option == 'l' && ok)
    config->log_json = true;
  if (option == 'l' && !ok)
    why = "--log takes \"json\"";
  if (!ok)
    fprintf(stderr, "velmora-devserver: %s\n", why.c_str());
  return ok;
}

/* Reads the command line into `config`; -1 to go on, else an exit code. */
int parse_options(int argc, char **argv, Config *config) {
  static const option options[] = {
      {"port", required_argument, nullptr, 'p'},
      {"user", required_argument, nullptr, 'u'},
      {"password", required_argument, nullptr, 'w'},
      {"token", required_argument, nullptr, 't'},
      {"auth-key", required_argument, nullptr, 'k'},
      {"clock-offset", required_argument, nullptr, 'c'},
      {"route", required_argument, nullptr, 'r'},
      {"fault", required_argument, nullptr, 'f'},
      {"log", required_argument, nullptr, 'l'},
      {"help", no_argument, nullptr, 'h'},
      {"version", no_argument, nullptr, 'V'},
      {nullptr, 0, nullptr, 0}};
  Account *account = nullptr;
  int c;
  long value;
  while ((c = getopt_long(argc, argv, "", options, nullptr)) != -1) {
    switch (c) {
    case 'p':
      if (!parse_long(optarg, 0, 65535, &value)) {
        fprintf(stderr, "velmora-devserver: bad port \"%s\"\n", optarg);
        return 2;
      }
      config->port = static_cast<int>(value);
      break;
    case 'u':
      account = const_cast<Account *>(find_account(*config, optarg));
      if (account == nullptr) {
        config->accounts.emplace_back();
        account = &config->accounts.back();
        account->name = optarg;
      }
      break;
    case 'w':
    case 't':
      if (account == nullptr) {
        fprintf(stderr, "velmora-devserver: --%s must follow a --user\n",
                c == 'w' ? "password" : "token");
        return 2;
      }
      if (c == 't') {
        account->token = optarg;
        account->has_token = true;
      } else {
        unsigned char digest[SHA_DIGEST_LENGTH];
        SHA1(reinterpret_cast<const unsigned char *>(optarg), strlen(optarg),
             digest);
        account->password_sha1 = hex(digest, sizeof digest);
        account->has_password = true;
      }
      break;
    case 'k':
      config->auth_key = optarg;
      config->require_auth_key = true;
      break;
    case 'c':
      if (!parse_long(optarg, -(1L << 40), 1L << 40, &value)) {
        fprintf(stderr, "velmora-devserver: bad clock offset \"%s\"\n", optarg);
        return 2;
      }
      config->clock_offset = value;
      break;
    case 'r':
    case 'f':
    case 'l':
      if (!script_option(c, optarg, config))
        return 2;
      break;
    case 'h':
      usage(stdout);
      return 0;
    case 'V':
      printf("velmora-devserver %s\n", VELMORA_VERSION_STRING);
      return 0;
    default:
      usage(stderr);
      return 2;
    }
  }
  if (optind != argc) {
    fprintf(stderr, "velmora-devserver: unexpected argument \"%s\"\n",
            argv[optind]);
    return 2;
  }
  return -1;
}

/* Reads the body as it comes, chunked or not, up to max_body: one more
 * byte and the request gets 413 without the rest being kept. */
void handle(const Config &config, const std::vector<ItemHandle> &catalogue,
            const httplib::Request &req, httplib::Response &res,
            const httplib::ContentReader &read) {
  note = Note();
  if (req.is_multipart_form_data())
    return answer_error(res, 415, "multipart bodies are not served");
  try {
    std::string body;
    bool too_large = false;
    if (!read([&](const char *data, size_t length) {
          too_large = body.size() + length > max_body;
          if (!too_large)
            body.append(data, length);
          return !too_large;
        })) {
      if (too_large || res.status == 413)
        return answer_error(res, 413, "request body too large");
      return answer_error(res, res.status >= 400 ? res.status : 400,
                          "request body not read");
    }
    serve(config, catalogue, req, body, res);
  } catch (const std::exception &e) {
    answer_error(res, 500, std::string("internal error: ") + e.what());
  }
}

void log_request(const Config &config, const httplib::Request &req,
                 const httplib::Response &res) {
  if (config.log_json) {
    Json::Value entry;
    entry["method"] = req.method;
    entry["path"] = req.path;
    entry["user"] = note.user;
    entry["status"] = res.status;
    entry["outcome"] = note.detail;
    fprintf(stderr, "%s\n", render(entry).c_str());
  } else {
    fprintf(stderr, "%s %s %s %d %s\n", printable(req.method).c_str(),
            printable(req.path).c_str(), printable(note.user).c_str(),
            res.status, printable(note.detail).c_str());
  }
  note = Note();
}

void set_up(httplib::Server &server, const Config &config,
            const std::vector<ItemHandle> &catalogue) {
  /* Without httplib's SO_REUSEPORT, a port in use fails to bind instead of
   * sharing its requests with another server. */
  server.set_socket_options([](socket_t sock) {
    int yes = 1;
    setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  });
  server.new_task_queue = [] {
    return new httplib::ThreadPool(worker_threads);
  };
  server.set_keep_alive_timeout(idle_seconds);
  server.set_read_timeout(idle_seconds, 0);
  server.set_payload_max_length(max_body);
  server.Post(".*", [&](const httplib::Request &req, httplib::Response &res,
                        const httplib::ContentReader &read) {
    handle(config, catalogue, req, res, read);
  });
  auto not_post = [](const httplib::Request &, httplib::Response &res) {
    answer_error(res, 405, "only POST is served");
  };
  server.Get(".*", not_post);
  server.Put(".*", not_post);
  server.Patch(".*", not_post);
  server.Delete(".*", not_post);
  server.Options(".*", not_post);
  /* Errors httplib answers itself (a malformed request, a body too large)
   * get the same JSON form as ours. */
  server.set_error_handler(
      [](const httplib::Request &, httplib::Response &res) {
        if (res.body.empty())
          answer_error(res, res.status,
                       res.status == 413 ? "request body too large"
                                         : "malformed HTTP request");
      });
  server.set_logger(
      [&](const httplib::Request &req, const httplib::Response &res) {
        log_request(config, req, res);
      });
}

/* The port listened on, or -1 after saying why not. */
int bind_port(httplib::Server &server, int wanted) {
  int port = wanted == 0
                 ? server.bind_to_any_port("127.0.0.1")
                 : (server.bind_to_port("127.0.0.1", wanted) ? wanted : -1);
  if (port < 0 && errno == EADDRINUSE)
    fprintf(stderr, "velmora-devserver: port %d is already in use\n", wanted);
  else if (port < 0)
    fprintf(stderr, "velmora-devserver: cannot listen on 127.0.0.1:%d: %s\n",
            wanted, strerror(errno));
  return port;
}

} // namespace

int main(int argc, char **argv) {
  Config config;
  int status = parse_options(argc, argv, &config);
  if (status >= 0)
    return status;
  if (config.accounts.empty())
    fprintf(stderr, "velmora-devserver: no --user given: every request "
                    "will be refused\n");

  /* Signals are taken by one thread that stops the server; every other
   * thread, httplib's workers included, inherits the blocked mask. */
  sigset_t stop_signals;
  sigemptyset(&stop_signals);
  sigaddset(&stop_signals, SIGINT);
  sigaddset(&stop_signals, SIGTERM);
  sigaddset(&stop_signals, SIGHUP);
  pthread_sigmask(SIG_BLOCK, &stop_signals, nullptr);
  signal(SIGPIPE, SIG_IGN);

  const std::vector<ItemHandle> catalogue = make_catalogue();
  httplib::Server server;
  set_up(server, config, catalogue);
  int port = bind_port(server, config.port);
  if (port < 0)
    return 1;
  printf("%d\n", port);
  fflush(stdout);
  fprintf(stderr,
          "velmora-devserver: listening on http://127.0.0.1:%d, clock "
          "offset %ld s\n",
          port, config.clock_offset);

  std::thread stopper([&] {
    int signal_number;
    sigwait(&stop_signals, &signal_number);
    /* Delays and hangs end first, so that their workers can be joined. */
    config.script.stopping = true;
    server.stop();
  });
  bool listened = server.listen_after_bind();
  /* Wakes the stopper when the server ended on its own; otherwise the
   * signal stays pending, blocked, and is never delivered. */
  kill(getpid(), SIGTERM);
  stopper.join();
  return listened ? 0 : 1;
}
