/* The client record and its key file, send_request against a loopback
 * server that records every request, the options it hands libcurl, and the
 * clock arithmetic of re-synchronisation; fuzz/extract_header pins the
 * header lookup. */
#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstring>
#include <dlfcn.h>
#include <fstream>
#include <memory>
#include <vector>

#include <curl/curl.h>
#include <gtest/gtest.h>

#include "capture_stdout.h"
#include "loopback_server.h"
#include "oracles.h"
#include "transport_internal.h"
#include "velmora/transport.h"

namespace {

/* One curl_easy_setopt call: the option and its value, whatever its type. */
struct SetOption {
  CURLoption option;
  long number;
  const void *pointer;
  std::string text; // a URL's, or the header list's line names
};

std::atomic<bool> listening{false};
std::vector<SetOption> options_set;

/* The names of the lines in a header list, each up to its ':' or ';'. */
std::string line_names(const curl_slist *lines) {
  std::string names;
  for (; lines != nullptr; lines = lines->next)
    names.append(lines->data, strcspn(lines->data, ":;")).push_back('|');
  return names;
}

} // namespace

/* Interposed for the whole test program: notes each option while a test
 * listens and forwards it to libcurl with its own type. The parentheses
 * keep libcurl's type-checking macro out of the definition. */
extern "C" CURLcode(curl_easy_setopt)(CURL *curl, CURLoption option, ...) {
  using Real = CURLcode (*)(CURL *, CURLoption, ...);
  static const auto real =
      reinterpret_cast<Real>(dlsym(RTLD_NEXT, "curl_easy_setopt"));
  va_list args;
  va_start(args, option);
  SetOption set{option, 0, nullptr, ""};
  curl_off_t offset = 0;
  if (option < CURLOPTTYPE_OBJECTPOINT)
    set.number = va_arg(args, long);
  else if (option < CURLOPTTYPE_FUNCTIONPOINT)
    set.pointer = va_arg(args, void *);
  else if (option < CURLOPTTYPE_OFF_T)
    set.pointer =
        reinterpret_cast<const void *>(va_arg(args, curl_write_callback));
  else
    offset = va_arg(args, curl_off_t);
  va_end(args);
  if (option == CURLOPT_URL)
    set.text = static_cast<const char *>(set.pointer);
  if (option == CURLOPT_HTTPHEADER)
    set.text = line_names(static_cast<const curl_slist *>(set.pointer));
  if (listening)
    options_set.push_back(set);
  if (option >= CURLOPTTYPE_OFF_T)
    return real(curl, option, offset);
  return option < CURLOPTTYPE_OBJECTPOINT ? real(curl, option, set.number)
                                          : real(curl, option, set.pointer);
}

namespace {

using C = client_context_s;
using Context = std::unique_ptr<C, void (*)(C *)>;

/* The result, what the call printed on standard output up to libcurl's
 * own wording, and "(traced)" when libcurl traced on standard error. */
std::string send(C *context, const std::string &path, std::string *out,
                 const std::string &body) {
  int result = 0;
  std::string printed;
  const std::string trace = capture_output(STDERR_FILENO, [&] {
    printed = capture_stdout(
        [&] { result = send_request(context, path, body, out); });
  });
  return std::to_string(result) + printed.substr(0, printed.find(" - ")) +
         (trace.empty() ? "" : "(traced)");
}

/* The AUTHENTICATION value a correct client sends for `request`. */
std::string authentication(const std::string &request, const std::string &key,
                           bool token, const std::string &path,
                           const std::string &body) {
  const std::string signature = oracle_base64(oracle_hmac(
      key, "POST " + path + "\nDate: " + header_line(request, "Date:") + "\n" +
               body));
  return (token ? "TOKEN-DATE " : "HMAC-SHA1-DATE ") + oracle_base64("u") +
         ":" + (token ? key + ":" : "") + signature;
}

const std::string reply("r\0s", 3),
    nul("a\0b", 3), ok = http_reply(200, "", reply);

/* One call with the password "pw", replies from a script, the record's
 * other fields as given; "(traced)" in the result asks for verbose. */
struct Call {
  std::vector<std::string> replies;
  long lead;
  std::string result;
  size_t requests;
  const char *user = "u", *token = nullptr, *hash = nullptr;
  std::string path = "/p", key = "host-key", line = ": host-key",
              host = "127.0.0.1";
  int64_t offset = -400 * 86400;
};

/* Each request goes to the path with the body byte for byte and the key
 * line as it is (an empty or blank key as an empty value). With a user it
 * is signed under the token or else the password's SHA-1 (a given hash as
 * it is), and "Date:" is the local clock plus the offset; without one
 * nothing is signed. Only 200 is success, and its reply arrives whole. A
 * 401 with "auth_error: 1" and a date moves the offset by the server's lead
 * and sends again, newly dated and signed: at most three attempts; any
 * other refusal, an unsigned request's or one without a readable date ends
 * the call, `out` unchanged. A CR, LF or NUL in a token that would be sent
 * or in the key, a NUL in the path or host, or a date that cannot be
 * written refuses the request before anything is sent; a line break in the
 * path makes a URL libcurl rejects. */
TEST(SendRequest, RequestsAndRepliesDecideTheResult) {
  const std::string resync = http_reply(401, "auth_error: 1\r\nDate: @\r\n"),
                    body("{\0}\xff\n", 5);
  const int64_t far = INT64_MAX / 2; // no calendar reaches it
  const Call calls[] = {
      {{ok}, 0, "0(traced)", 1, "u", nullptr, nullptr, "/a?c=%20"},
      {{ok}, 0, "0", 1, "u", nullptr, "any text", "/p", "", ":"},
      {{ok}, 0, "0", 1, "u", "tok-123", nullptr, "/p", "   ", ":"},
      {{ok}, 0, "0", 1, "u", "", nullptr, "/p", " a\t", ":  a\t"},
      {{http_reply(201, "", reply)}, 0, "-1", 1},
      {{http_reply(307, "Location: /p\r\n"), ok}, 0, "0", 2},
      {{http_reply(401, "auth_error: 2\r\nDate: @\r\n")}, 0, "-3", 1},
      {{http_reply(401, "auth_error: 1\r\n")}, 0, "-3", 1},
      {{http_reply(401, "auth_error: 1\r\nDate: x\r\n")}, 0, "-2", 1},
      {{http_reply(401, "auth_error: 1\r\nDate:    \r\n")}, 0, "-2", 1},
      {{""}, 0, "-2Error: [52]", 1},
      {{resync, ok}, 3600, "0", 2},
      {{http_reply(401, "X-Auth_Error:1\r\ndate:  @\r\n"), ok}, -120, "0", 2},
      {{resync}, 3600, "-3", 3},
      {{resync}, 3600, "-3", 1, "", "a\nb"},
      {{ok}, 0, "-1", 0, "u", "a\rb"},
      {{ok}, 0, "-1", 0, "u", nullptr, nullptr, "/p", "a\nb"},
      {{ok}, 0, "-1", 0, "u", nullptr, nullptr, "/p", nul},
      {{ok}, 0, "-1", 0, "u", nullptr, nullptr, "/p" + nul},
      {{ok}, 0, "-2Error: [3]", 0, "u", nullptr, nullptr, "/a\r\nX: 1"},
      {{ok}, 0, "-1", 0, "u", nullptr, nullptr, "/p", "k", "", nul},
      {{ok}, 0, "-1", 0, "u", 0, 0, "/", "k", ": k", "127.0.0.1", far}};
  for (const Call &c : calls) {
    LoopbackServer server(c.replies, c.lead);
    Context context(client_context_new(), client_context_free);
    C *record = context.get();
    client_context_set_port(record, server.port());
    client_context_set_user(record, c.user);
    c.hash ? client_context_set_password_hash(record, c.hash)
           : client_context_set_password(record, "pw");
    client_context_set_token(record, c.token);
    *record->auth_key = c.key;
    *record->host = c.host;
    record->clock_offset = c.offset;
    record->verbose = c.result.find("(traced)") != std::string::npos;
    std::string out = "kept";
    const time_t before = time(nullptr) + record->clock_offset;
    EXPECT_EQ(send(record, c.path, &out, body), c.result) << c.replies[0];
    const bool answered =
        c.requests > 0 && (c.result[0] == '0' || c.result == "-1");
    EXPECT_EQ(out, answered ? reply : "kept");
    const std::vector<std::string> requests = server.requests();
    ASSERT_EQ(requests.size(), c.requests) << c.replies[0];
    /* Each refusal of a signed request moved the offset by the lead. */
    EXPECT_EQ(record->clock_offset - c.offset,
              *c.user ? c.lead * int64_t(c.requests - answered) : 0);
    const std::string key = c.token  ? c.token
                            : c.hash ? c.hash
                                     : oracle_sha1_hex("pw");
    for (size_t n = 0; n < requests.size(); ++n) {
      struct tm local;
      const time_t due = n ? request_time(requests[n - 1]) + c.lead + 1
                           : timegm(localtime_r(&before, &local));
      EXPECT_NEAR(request_time(requests[n]), *c.user ? due : -1, 2);
      EXPECT_EQ(requests[n].substr(0, requests[n].find("\r\n")) +
                    requests[n].substr(requests[n].find("\r\n\r\n") + 4) +
                    header_line(requests[n], "LOCAL_AUTH_KEY") +
                    header_line(requests[n], "Expect:"),
                "POST " + c.path + " HTTP/1.1" + body + c.line + "<absent>");
      EXPECT_EQ(header_line(requests[n], "AUTHENTICATION:"),
                *c.user
                    ? authentication(requests[n], key, c.token, c.path, body)
                    : "<absent>");
    }
  }
  std::string out;
  Context record(client_context_new(), client_context_free);
  EXPECT_EQ(send_request(nullptr, "/p", "", &out) +
                send_request(record.get(), "/p", "", nullptr),
            -2);
}

/* The options of one call as text: each pointer that is not the body's
 * named by the order of its first appearance, so that a shared or a
 * distinct function or sink shows. */
std::string options_text(const std::vector<SetOption> &options,
                         const std::string &body) {
  const std::pair<CURLoption, const char *> names[] = {
      {CURLOPT_HTTPHEADER, "HTTPHEADER"},
      {CURLOPT_ERRORBUFFER, "ERRORBUFFER"},
      {CURLOPT_URL, "URL"},
      {CURLOPT_HEADER, "HEADER"},
      {CURLOPT_FOLLOWLOCATION, "FOLLOWLOCATION"},
      {CURLOPT_WRITEFUNCTION, "WRITEFUNCTION"},
      {CURLOPT_WRITEDATA, "WRITEDATA"},
      {CURLOPT_HEADERFUNCTION, "HEADERFUNCTION"},
      {CURLOPT_HEADERDATA, "HEADERDATA"},
      {CURLOPT_POST, "POST"},
      {CURLOPT_POSTFIELDS, "POSTFIELDS"},
      {CURLOPT_POSTFIELDSIZE, "POSTFIELDSIZE"},
      {CURLOPT_VERBOSE, "VERBOSE"}};
  std::vector<const void *> seen;
  std::string text;
  for (const SetOption &set : options) {
    std::string name = "option" + std::to_string(set.option);
    for (const auto &[option, known] : names)
      if (option == set.option)
        name = known;
    text.append(" ").append(name).append("=");
    if (set.option < CURLOPTTYPE_OBJECTPOINT) {
      text.append(std::to_string(set.number));
    } else if (!set.text.empty() || set.pointer == body.data()) {
      text.append(set.pointer == body.data() ? "body" : set.text);
    } else {
      auto at = std::find(seen.begin(), seen.end(), set.pointer);
      if (at == seen.end())
        at = seen.insert(at, set.pointer);
      text.append("p" + std::to_string(at - seen.begin()));
    }
  }
  return text;
}

/* Exactly the fixed option table, in its order: the header list, the
 * error buffer, the URL, no headers in the body, redirections followed, one
 * write function that appends to a string for two distinct sinks, a POST of
 * the caller's own body bytes, verbose last and only when asked; with
 * either signing scheme and without a user. */
TEST(SendRequest, HandsLibcurlTheOptionTable) {
  const struct {
    const char *user, *token;
    int verbose;
    const char *lines;
  } calls[] = {{"u", nullptr, 0, "Date|AUTHENTICATION|LOCAL_AUTH_KEY|Expect|"},
               {"u", "tok", 0, "Date|AUTHENTICATION|LOCAL_AUTH_KEY|Expect|"},
               {nullptr, "tok", 0, "LOCAL_AUTH_KEY|Expect|"},
               {"u", nullptr, 2, "Date|AUTHENTICATION|LOCAL_AUTH_KEY|Expect|"}};
  const std::string body("{\0}", 3);
  for (const auto &c : calls) {
    LoopbackServer server({ok});
    Context context(client_context_new(), client_context_free);
    client_context_set_port(context.get(), server.port());
    client_context_set_user(context.get(), c.user);
    client_context_set_token(context.get(), c.token);
    context->verbose = c.verbose;
    std::string out;
    options_set.clear();
    listening = true;
    capture_output(STDERR_FILENO,
                   [&] { send_request(context.get(), "/p", body, &out); });
    listening = false;
    const std::string url =
        "http://127.0.0.1:" + std::to_string(server.port()) + "/p";
    EXPECT_EQ(options_text(options_set, body),
              std::string(" HTTPHEADER=") + c.lines + " ERRORBUFFER=p0 URL=" +
                  url + " HEADER=0 FOLLOWLOCATION=1 WRITEFUNCTION=p1" +
                  " WRITEDATA=p2 HEADERFUNCTION=p1 HEADERDATA=p3 POST=1" +
                  " POSTFIELDS=body POSTFIELDSIZE=3" +
                  (c.verbose ? " VERBOSE=1" : ""));
    ASSERT_EQ(options_set.size(), c.verbose ? 13u : 12u);
    /* The one write function appends to the string it is given. */
    const auto append =
        reinterpret_cast<curl_write_callback>(options_set[7].pointer);
    std::string sink = "a";
    char piece[] = "bcd";
    EXPECT_EQ(append(piece, 1, 3, &sink) + append(piece, 1, 3, nullptr), 3u);
    EXPECT_EQ(sink, "abcd");
  }
}

/* A record made by init has the defaults, whatever its storage held. Each
 * text setter keeps its own copy, also of the text its field lent; ""
 * leaves the user and the password absent but is a text for the others;
 * null leaves a field absent, but the host empty. A password and a hash
 * replace each other. */
TEST(ClientContext, DefaultsAndSetters) {
  const struct {
    int (*set)(C *, const char *);
    std::string *C::*field;
    std::string initial;
    bool empty_is_absent, null_is_empty;
  } setters[] = {{client_context_set_user, &C::user, "-", true, false},
                 {client_context_set_password, &C::password, "-", true, false},
                 {client_context_set_token, &C::token, "-", false, false},
                 {client_context_set_auth_key, &C::auth_key, getLocalAuthKey(),
                  false, false},
                 {client_context_set_host, &C::host, "127.0.0.1", false, true}};
  client_context_s own, *c = &own;
  memset(&own, 0xA5, sizeof own);
  client_context_init(&own);
  EXPECT_EQ(c->port + c->clock_offset + c->verbose, 8888);
  for (const auto &s : setters) {
    EXPECT_EQ(c->*s.field ? *(c->*s.field) : "-", s.initial);
    std::string given = "given";
    EXPECT_EQ(s.set(c, given.c_str()) + s.set(nullptr, "x"), 0);
    given[0] = 'X';
    EXPECT_EQ(s.set(c, (c->*s.field)->c_str()), 0);
    EXPECT_EQ(*(c->*s.field), "given");
    s.set(c, "");
    EXPECT_EQ(c->*s.field == nullptr, s.empty_is_absent);
    s.set(c, nullptr);
    EXPECT_EQ(c->*s.field == nullptr, !s.null_is_empty);
  }
  client_context_set_token(c, "t");
  client_context_set_password_hash(c, "0123");
  client_context_set_password_hash(c, client_context_get_password_sha1(c));
  EXPECT_EQ(client_context_invalidate_token(c) + client_context_set_port(c, -5),
            0);
  EXPECT_EQ(std::to_string(c->port) + client_context_get_password_sha1(c) +
                (c->token ? "token" : ""),
            "-50123");
  client_context_set_password(c, "pw");
  EXPECT_EQ(client_context_get_password_sha1(c), nullptr);
  client_context_set_user(c, "u");
  EXPECT_STREQ(client_context_get_user(c), "u");
  EXPECT_EQ(client_context_get_user(nullptr), nullptr);
  EXPECT_EQ(client_context_get_password_sha1(nullptr), nullptr);
  client_context_clean(&own);
}

/* The first line of the key file, up to 79 bytes and its first CR or NUL;
 * no file or no line gives "NO KEY". */
TEST(KeyFile, FirstLineIsTheKeyAndNoLineGivesNoKey) {
  EXPECT_EQ(velmora::read_local_auth_key(nullptr), "NO KEY");
  const std::pair<std::string, std::string> cases[] = {
      {"", "NO KEY"},
      {std::string("\0abc\n", 5), "NO KEY"},
      {"abc\r\r\n", "abc"},
      {"\n", ""},
      {" \tkey  \nsecond\n", " \tkey  "},
      {std::string("ab\0cd\n", 6), "ab"},
      {std::string(100, 'k'), std::string(79, 'k')}};
  const std::string name = testing::TempDir() + "velmora-local-auth.key";
  for (const auto &[content, key] : cases) {
    std::ofstream(name, std::ios::binary) << content;
    EXPECT_EQ(velmora::read_local_auth_key(name.c_str()), key) << content;
  }
  unlink(name.c_str());
  EXPECT_EQ(velmora::read_local_auth_key(name.c_str()), "NO KEY");
}

/* Against timegm for random instants of the years 0 to 9999, with a day of
 * the year that must be derived from month and day rather than trusted. */
TEST(ClockDifference, MatchesTheCalendar) {
  std::mt19937_64 rng(1);
  for (int round = 0; round < 20000; ++round) {
    time_t at[2];
    struct tm fields[2];
    for (int i : {0, 1}) {
      at[i] = time_t(rng() % 315537897600) - 62167219200;
      gmtime_r(&at[i], &fields[i])->tm_yday = -99;
    }
    ASSERT_EQ(velmora::clock_difference(fields[0], fields[1]), at[1] - at[0])
        << at[0] << " -> " << at[1];
  }
}

} // namespace
