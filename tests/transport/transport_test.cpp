/* The client record and its key file, send_request against a loopback
 * server that records every request, reply header lookup and the clock
 * arithmetic of re-synchronisation. */
#include <cstring>
#include <memory>
#include <unistd.h>

#include <gtest/gtest.h>

#include "capture_stdout.h"
#include "loopback_server.h"
#include "oracles.h"
#include "transport_helpers.h"
#include "transport_internal.h"
#include "velmora/transport.h"

namespace {

using Context = std::unique_ptr<client_context_s, void (*)(client_context_s *)>;

/* A fresh record for `server` with the key "host-key", signing as `user`. */
Context record(const LoopbackServer &server, const char *user) {
  Context context(client_context_new(), client_context_free);
  client_context_set_port(context.get(), server.port());
  client_context_set_auth_key(context.get(), "host-key");
  client_context_set_user(context.get(), user);
  return context;
}

/* The result, what the call printed on standard output up to libcurl's
 * own wording, and "(traced)" when libcurl traced on standard error. */
std::string send(client_context_s *context, const std::string &path,
                 std::string *out, const std::string &body = "b") {
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
                           bool token, const std::string &path = "/p",
                           const std::string &body = "b") {
  const std::string signature = oracle_base64(oracle_hmac(
      key, "POST " + path + "\nDate: " + header_line(request, "Date:") + "\n" +
               body));
  return (token ? "TOKEN-DATE " : "HMAC-SHA1-DATE ") + oracle_base64("u") +
         ":" + (token ? key + ":" : "") + signature;
}

/* Each request goes to the path with the body byte for byte and the key
 * line as it is (an empty or blank key as an empty value). With a user it
 * is signed under the token or else the password's SHA-1, made once, and
 * "Date:" is the local clock plus the offset; without one nothing is
 * signed. The reply arrives whole. Verbose switches on libcurl's trace. */
TEST(SendRequest, EachRequestCarriesItsLines) {
  const std::string path = "/a?c=%20", body("{\0}\xff\n", 5), reply("r\0s", 3);
  const struct {
    const char *user, *password, *hash, *token, *key, *line;
    std::string signing_key;
  } cases[] = {{"u", "pw", nullptr, nullptr, "host-key", ": host-key",
                oracle_sha1_hex("pw")},
               {"u", "pw", "any text", nullptr, "", ":", "any text"},
               {"u", nullptr, nullptr, "tok-123", "   ", ":", "tok-123"},
               {"u", nullptr, nullptr, "", " a\t", ":  a\t", ""},
               {"u", "pw", nullptr, "t", "k", ": k", "t"},
               {"", "pw", nullptr, "t", "k", ": k", ""}};
  for (const auto &c : cases) {
    LoopbackServer server({http_reply(200, "", reply)});
    Context context = record(server, c.user);
    client_context_set_host(context.get(), "localhost");
    client_context_set_auth_key(context.get(), c.key);
    context->clock_offset = -400 * 86400;
    context->verbose = c.token == nullptr;
    client_context_set_password(context.get(), c.password);
    if (c.hash)
      client_context_set_password_hash(context.get(), c.hash);
    client_context_set_token(context.get(), c.token);
    for (size_t round = 0; round < 2; ++round) {
      std::string out;
      const time_t before = time(nullptr) + context->clock_offset;
      ASSERT_EQ(send(context.get(), path, &out, body),
                c.token ? "0" : "0(traced)");
      EXPECT_EQ(out, reply);
      const std::string request = server.requests()[round];
      EXPECT_EQ(request.substr(0, request.find("\r\n")),
                "POST " + path + " HTTP/1.1");
      EXPECT_EQ(request_body(request), body);
      EXPECT_EQ(header_line(request, "LOCAL_AUTH_KEY"), c.line);
      EXPECT_EQ(header_line(request, "Expect:"), "<absent>");
      EXPECT_EQ(
          header_line(request, "AUTHENTICATION:"),
          *c.user ? authentication(request, c.signing_key, c.token, path, body)
                  : "<absent>");
      struct tm local;
      EXPECT_NEAR(request_time(request),
                  *c.user ? timegm(localtime_r(&before, &local)) : -1, 2);
      EXPECT_STREQ(client_context_get_password_sha1(context.get()),
                   *c.user && !c.token ? c.signing_key.c_str() : nullptr);
    }
  }
}

/* Answers request n with replies[n] (the last once they are spent), each
 * "@" written as the date `lead` seconds after the request's. */
LoopbackServer::Responder script(std::vector<std::string> replies, long lead) {
  return [=, n = size_t(0)](const std::string &request) mutable {
    std::string reply = replies[std::min(n++, replies.size() - 1)];
    const size_t at = reply.find('@');
    return at == std::string::npos
               ? reply
               : reply.replace(at, 1, date_after(request, lead));
  };
}

/* Only 200 is success. A 401 with "auth_error: 1" and a date moves the
 * offset by the server's lead and sends again, newly dated and signed: at
 * most three attempts; any other refusal, an unsigned request's or one
 * without a readable date ends the call, `out` unchanged. */
TEST(SendRequest, RepliesDecideTheResult) {
  const auto refused = [](const std::string &headers) {
    return http_reply(401, headers);
  };
  const std::string resync = refused("auth_error: 1\r\nDate: @\r\n"),
                    accepted = http_reply(200, "", "accepted");
  const struct {
    std::vector<std::string> replies;
    long lead;
    std::string result;
    size_t requests;
    const char *user = "u";
  } cases[] = {
      {{http_reply(201, "", "accepted")}, 0, "-1", 1},
      {{http_reply(302, "Location: /next\r\n"), accepted}, 0, "0", 2},
      {{refused("Date: @\r\n")}, 0, "-3", 1},
      {{refused("auth_error: 2\r\nDate: @\r\n")}, 0, "-3", 1},
      {{refused("auth_error: 1\r\n")}, 0, "-3", 1},
      {{refused("auth_error: 1\r\nDate: x\r\n")}, 0, "-2", 1},
      {{refused("auth_error: 1\r\nDate:    \r\n")}, 0, "-2", 1},
      {{""}, 0, "-2Error: [52]", 1},
      {{resync, accepted}, 3600, "0", 2},
      {{refused("AUTH_ERROR: 1\r\nDATE: @\r\n"), accepted}, -120, "0", 2},
      {{refused("X-Auth_Error:1\r\ndate:  @\r\n"), accepted}, -120, "0", 2},
      {{resync}, 3600, "-3", 3},
      {{resync}, 3600, "-3", 1, ""}};
  for (const auto &c : cases) {
    LoopbackServer server(script(c.replies, c.lead));
    Context context = record(server, c.user);
    std::string out = "kept";
    EXPECT_EQ(send(context.get(), "/p", &out), c.result) << c.replies[0];
    const bool answered = c.result == "0" || c.result == "-1";
    EXPECT_EQ(out, answered ? "accepted" : "kept");
    const std::vector<std::string> requests = server.requests();
    ASSERT_EQ(requests.size(), c.requests) << c.replies[0];
    /* Each refusal of a signed request moved the offset by the lead. */
    EXPECT_EQ(context->clock_offset,
              *c.user ? c.lead * int64_t(c.requests - answered) : 0);
    for (size_t n = 1; n < requests.size(); ++n) {
      EXPECT_NEAR(request_time(requests[n]) - request_time(requests[n - 1]),
                  c.lead + 1, 1);
      EXPECT_EQ(header_line(requests[n], "AUTHENTICATION:"),
                authentication(requests[n], oracle_sha1_hex(""), false));
    }
  }
}

/* A CR, LF or NUL in a token that would be sent or in the key, or a NUL in
 * the path or host, refuses the request; a line break in the path makes a
 * URL that libcurl rejects. Nothing reaches the server. */
TEST(SendRequest, ValuesThatWouldBreakALineAreNeverSent) {
  LoopbackServer server({http_reply(200, "", "sent")});
  using C = client_context_s;
  const std::string nul("a\0b", 3);
  const struct {
    const char *user;
    std::string *C::*field;
    std::string value, path, result;
  } cases[] = {{"u", &C::token, "a\rb", "/p", "-1"},
               {"u", &C::token, "a\nb", "/p", "-1"},
               {"u", &C::token, nul, "/p", "-1"},
               {"", &C::auth_key, "a\rb", "/p", "-1"},
               {"", &C::auth_key, nul, "/p", "-1"},
               {"", &C::host, "127.0.0.1" + nul, "/p", "-1"},
               {"", &C::auth_key, "k", "/p" + nul, "-1"},
               {"", &C::auth_key, "k", "/a\r\nX: 1", "-2Error: [3]"},
               {"", &C::token, "a\nb", "/p", "0"}};
  for (const auto &c : cases) {
    Context context = record(server, c.user);
    delete (context.get()->*c.field);
    context.get()->*c.field = new std::string(c.value);
    std::string out = "kept";
    EXPECT_EQ(send(context.get(), c.path, &out), c.result) << c.value;
    EXPECT_EQ(out, c.result == "0" ? "sent" : "kept");
    EXPECT_EQ(send_request(context.get(), "/p", "", nullptr), -1);
  }
  EXPECT_EQ(server.requests().size(), 1u);
  std::string out;
  EXPECT_EQ(send_request(nullptr, "/p", "", &out), -1);
}

/* The key that the reader finds in a temporary file holding `content`. */
std::string key_of_file(const std::string &content) {
  char name[] = "/tmp/velmora-key-XXXXXX";
  const int fd = mkstemp(name);
  const bool written =
      write(fd, content.data(), content.size()) == ssize_t(content.size());
  close(fd);
  const std::string key =
      written ? velmora::read_local_auth_key(name) : "<unwritten>";
  unlink(name);
  return key;
}

/* Calendar fields of "YYYY-MM-DD hh:mm:ss", with a day of the year that
 * must be derived from month and day rather than trusted. */
struct tm fields(const char *text) {
  struct tm time {};
  strptime(text, "%Y-%m-%d %H:%M:%S", &time);
  time.tm_yday = -99;
  return time;
}

/* A record made by init has the defaults. Each text setter keeps its own copy,
 * also of the text its field lent; "" leaves the user and the password
 * absent but is a text for the others; null leaves a field absent, but the
 * host empty. A password and a hash replace each other. */
TEST(ClientContext, DefaultsAndSetters) {
  using C = client_context_s;
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
  memset(&own, 0xA5, sizeof own); /* init must not count on zeroed storage */
  client_context_init(&own);
  EXPECT_EQ(c->port, 8888);
  EXPECT_EQ(c->clock_offset, 0);
  EXPECT_EQ(c->verbose, 0);
  for (const auto &s : setters) {
    EXPECT_EQ(c->*s.field ? *(c->*s.field) : "-", s.initial);
    std::string given = "given";
    EXPECT_EQ(s.set(c, given.c_str()), 0);
    given[0] = 'X';
    EXPECT_EQ(s.set(c, (c->*s.field)->c_str()), 0);
    EXPECT_EQ(*(c->*s.field), "given");
    s.set(c, "");
    EXPECT_EQ(c->*s.field == nullptr, s.empty_is_absent);
    s.set(c, nullptr);
    EXPECT_EQ(c->*s.field == nullptr, !s.null_is_empty);
    EXPECT_EQ(s.set(nullptr, "x"), 0);
  }
  client_context_set_user(c, "bob");
  EXPECT_STREQ(client_context_get_user(c), "bob");
  client_context_set_token(c, "t");
  EXPECT_EQ(client_context_invalidate_token(c) + client_context_set_port(c, -5),
            0);
  EXPECT_EQ(c->token, nullptr);
  EXPECT_EQ(c->port, -5);
  client_context_set_password_hash(c, "0123");
  client_context_set_password_hash(c, client_context_get_password_sha1(c));
  EXPECT_STREQ(client_context_get_password_sha1(c), "0123");
  client_context_set_password(c, "pw");
  EXPECT_EQ(client_context_get_password_sha1(c), nullptr);
  EXPECT_EQ(client_context_get_password_sha1(nullptr), nullptr);
  EXPECT_EQ(client_context_get_user(nullptr), nullptr);
  client_context_clean(&own);
  client_context_free(nullptr);
}

TEST(KeyFile, FirstLineIsTheKeyAndNoLineGivesNoKey) {
  EXPECT_EQ(velmora::read_local_auth_key("/nonexistent/local_auth.key"),
            "NO KEY");
  EXPECT_EQ(velmora::read_local_auth_key(nullptr), "NO KEY");
  const std::pair<std::string, std::string> cases[] = {
      {"", "NO KEY"},
      {std::string("\0abc\n", 5), "NO KEY"},
      {"abc\r\r\n", "abc"},
      {"abc", "abc"},
      {"\n", ""},
      {" \tkey  \nsecond\n", " \tkey  "},
      {std::string("ab\0cd\n", 6), "ab"},
      {std::string(100, 'k'), std::string(79, 'k')}};
  for (const auto &[content, key] : cases)
    EXPECT_EQ(key_of_file(content), key) << testing::PrintToString(content);
}

TEST(ClockDifference, MatchesTheCalendarFieldByField) {
  const std::pair<const char *, const char *> cases[] = {
      {"2023-12-31 23:59:59", "2024-01-01 00:00:00"},
      {"2024-02-28 12:00:00", "2024-03-01 12:00:00"},
      {"2100-02-28 12:00:00", "2100-03-01 12:00:00"},
      {"2000-02-28 12:00:00", "2000-03-01 12:00:00"},
      {"2400-12-31 00:00:00", "1601-01-01 00:00:00"},
      {"9999-12-31 23:59:59", "0000-01-01 00:00:00"},
      {"2024-06-15 08:30:00", "2024-06-15 08:30:60"}};
  for (const auto &[stamp, server] : cases) {
    struct tm from = fields(stamp), to = fields(server);
    EXPECT_EQ(velmora::clock_difference(fields(stamp), fields(server)),
              int64_t(timegm(&to)) - int64_t(timegm(&from)))
        << stamp << " -> " << server;
  }
}

/* The name is found in any case anywhere, the value runs to the next line
 * feed; both texts end at their first NUL. */
TEST(ExtractHeader, FindsTheValueUpToTheLineFeedInAnyCase) {
  const std::pair<std::string, std::string> cases[] = {
      {"X-Date: y\r\nDate: z\r\n", "0 y\r"},
      {"date:\n", "0"},
      {"Date: no line end", "-2"},
      {std::string("Date: a\0\n", 9), "-2"},
      {std::string("X: a\0Date: b\n", 13), "-1"},
      {"Dat", "-1"}};
  for (const auto &[headers, found] : cases) {
    std::string text = headers, value;
    const int code = extract_header(&text, "DATE:", value);
    EXPECT_EQ(std::to_string(code) + value, found) << headers;
  }
  std::string newline = "a\nb: c\n", value;
  EXPECT_EQ(extract_header(&newline, "a\nb:", value), 0);
  EXPECT_EQ(value + std::to_string(extract_header(nullptr, "", value)), " c-1");
}

} // namespace
