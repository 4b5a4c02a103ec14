/* send_request against a loopback server that records every request. */
#include <ctime>
#include <string>
#include <sys/time.h>
#include <vector>

#include <gtest/gtest.h>

#include "capture_stdout.h"
#include "loopback_server.h"
#include "transport_helpers.h"
#include "velmora/transport.h"

namespace {

/* The clock the library stamps with; time() may lag it by a tick. */
time_t clock_seconds() {
  struct timeval now;
  gettimeofday(&now, nullptr);
  return now.tv_sec;
}

class SendRequest : public ::testing::Test {
protected:
  void SetUp() override {
    reset(nullptr);
  }

  /* A fresh record with the key "host-key", signing as `user` if given. */
  void reset(const char *user) {
    context_.reset(client_context_new());
    ASSERT_NE(context_, nullptr);
    client_context_set_auth_key(context(), "host-key");
    client_context_set_user(context(), user);
  }

  /* Sends to `server`; what the call printed lands in `printed_`. */
  int send(const LoopbackServer &server, const std::string &path,
           const std::string &body, std::string *out) {
    client_context_set_port(context(), server.port());
    int result = 0;
    printed_ = capture_stdout(
        [&] { result = send_request(context(), path, body, out); });
    return result;
  }

  /* The AUTHENTICATION value a correct client sends for `request`. */
  std::string expected_authentication(const std::string &request,
                                      const std::string &path,
                                      const std::string &body,
                                      const std::string &key, bool token) {
    const std::string signature = oracle_base64(oracle_hmac(
        key, "POST " + path + "\nDate: " + line_value(request, "Date:") + "\n" +
                 body));
    const std::string user64 = oracle_base64(*context_->user);
    return token ? "TOKEN-DATE " + user64 + ":" + key + ":" + signature
                 : "HMAC-SHA1-DATE " + user64 + ":" + signature;
  }

  client_context_s *context() {
    return context_.get();
  }

  Context context_;
  std::string printed_;
};

/* Without a user nothing is signed, even with a token; the key line goes
 * as it is, blank included. */
TEST_F(SendRequest, UnsignedRequestCarriesOnlyTheKeyLine) {
  const struct {
    const char *user, *key, *line;
  } cases[] = {{nullptr, "host-key", ": host-key"},
               {"", "", ":"},
               {nullptr, "   ", ":"},
               {nullptr, " spaced\t", ":  spaced\t"}};
  const std::string body(4096, 'b');
  for (const auto &c : cases) {
    LoopbackServer server({http_reply(200, "", "ok")});
    client_context_set_user(context(), c.user);
    client_context_set_token(context(), "tok");
    client_context_set_auth_key(context(), c.key);
    std::string out;
    ASSERT_EQ(send(server, "/plain", body, &out), 0);
    EXPECT_EQ(out, "ok");
    const std::string request = server.requests()[0];
    EXPECT_EQ(line_value(request, "LOCAL_AUTH_KEY"), c.line) << c.key;
    EXPECT_EQ(line_value(request, "Date:"), "<absent>");
    EXPECT_EQ(line_value(request, "AUTHENTICATION:"), "<absent>");
    EXPECT_EQ(line_value(request, "Expect:"), "<absent>");
    EXPECT_EQ(request.find("tok"), std::string::npos);
    EXPECT_EQ(request_body(request), body);
    EXPECT_EQ(context()->password_sha1, nullptr);
  }
}

/* The path and every byte of the body, NUL included, go as they are and
 * are signed; "Date:" (no space) is the local clock plus the offset and
 * comes right before the AUTHENTICATION and key lines; every byte of the
 * reply is delivered. The password's hash is computed once. */
TEST_F(SendRequest, SignedRequestsUnderEachSchemeAndKey) {
  const std::string path = "/a/b?c=d&e=%20f", body("{\"n\":\0}\xff\n", 9),
                    reply("r\0s", 3);
  const int64_t offset = -400 * 86400;
  const struct {
    const char *label, *password, *hash, *token;
    std::string key;
  } cases[] = {
      {"password", "pw", nullptr, nullptr, oracle_sha1_hex("pw")},
      {"no password", nullptr, nullptr, nullptr, oracle_sha1_hex("")},
      {"given hash", nullptr, "any text at all", nullptr, "any text at all"},
      {"token", nullptr, nullptr, "tok-123", "tok-123"},
      {"empty token", nullptr, nullptr, "", ""},
      {"token wins over password", "pw", nullptr, "t", "t"}};
  for (const auto &c : cases) {
    SCOPED_TRACE(c.label);
    reset("user@example");
    client_context_set_host(context(), "localhost");
    context()->clock_offset = offset;
    client_context_set_password(context(), c.password);
    if (c.hash)
      client_context_set_password_hash(context(), c.hash);
    client_context_set_token(context(), c.token);
    LoopbackServer server({http_reply(200, "", reply)});
    const char *hash = nullptr;
    for (size_t round = 0; round < 2; ++round) {
      std::string out;
      time_t before = clock_seconds() + offset;
      ASSERT_EQ(send(server, path, body, &out), 0) << printed_;
      time_t after = clock_seconds() + offset;
      EXPECT_EQ(out, reply);
      const std::string request = server.requests()[round];
      const std::vector<std::string> lines = request_lines(request);
      EXPECT_EQ(lines[0], "POST " + path + " HTTP/1.1");
      EXPECT_EQ(line_value(request, "Host: "),
                "localhost:" + std::to_string(server.port()));
      size_t date = 1;
      while (date + 3 < lines.size() && lines[date].compare(0, 5, "Date:"))
        ++date;
      EXPECT_NE(lines[date][5], ' ');
      EXPECT_EQ(lines[date + 1],
                "AUTHENTICATION:" +
                    expected_authentication(request, path, body, c.key,
                                            c.token != nullptr));
      EXPECT_EQ(lines[date + 2], "LOCAL_AUTH_KEY: host-key");
      struct tm low, high;
      EXPECT_GE(request_time(request), timegm(localtime_r(&before, &low)));
      EXPECT_LE(request_time(request), timegm(localtime_r(&after, &high)));
      EXPECT_EQ(request_body(request), body);
      if (round == 0)
        hash = client_context_get_password_sha1(context());
      EXPECT_EQ(client_context_get_password_sha1(context()), hash);
    }
    EXPECT_STREQ(hash, c.token ? nullptr : c.key.c_str());
  }
}

/* One request, one reply: only 200 is success; a refusal without a usable
 * "auth_error: 1" and date ends the call, and the offset stays. */
TEST_F(SendRequest, OneReplyDecidesTheResult) {
  reset("u");
  const std::string date = "Date: Mon, 01 Jan 2024 10:00:00 GMT\r\n";
  const std::string resync = "auth_error: 1\r\nDate:";
  const struct {
    std::string reply;
    int result;
    const char *out;
  } cases[] = {
      {http_reply(200, "", "fine"), 0, "fine"},
      {http_reply(201, "", "made"), -1, "made"},
      {http_reply(404, "", "missing"), -1, "missing"},
      {http_reply(500, "", "failed"), -1, "failed"},
      {http_reply(401, "", "denied"), -3, "kept"},
      {http_reply(401, date), -3, "kept"},
      {http_reply(401, "auth_error: 2\r\n" + date), -3, "kept"},
      {http_reply(401, "auth_error: x1\r\n" + date), -3, "kept"},
      {http_reply(401, "auth_error: 11\r\n" + date), -3, "kept"},
      {http_reply(401, "auth_error: 1\r\n"), -3, "kept"},
      {http_reply(401, resync + " yesterday\r\n"), -2, "kept"},
      {http_reply(401, resync + "\r\n"), -2, "kept"},
      {http_reply(401, resync + "    \r\n"), -2, "kept"},
      {"", -2, "kept"}, /* closed without a reply */
  };
  for (const auto &c : cases) {
    LoopbackServer server({c.reply});
    std::string out = "kept";
    EXPECT_EQ(send(server, "/r", "", &out), c.result) << c.reply;
    EXPECT_EQ(out, c.out);
    EXPECT_EQ(printed_.substr(0, 14), c.reply.empty() ? "Error: [52] - " : "");
    EXPECT_EQ(server.request_count(), 1u);
    EXPECT_EQ(context()->clock_offset, 0);
  }
}

TEST_F(SendRequest, RefusedConnectionPrintsTheErrorAndKeepsOut) {
  reset("u");
  client_context_set_port(context(), closed_port());
  std::string out = "kept";
  int result = 0;
  printed_ = capture_stdout(
      [&] { result = send_request(context(), "/none", "body", &out); });
  EXPECT_EQ(result, -2);
  EXPECT_EQ(out, "kept");
  EXPECT_EQ(printed_.compare(0, 13, "Error: [7] - "), 0) << printed_;
  EXPECT_NE(printed_.find(std::to_string(context()->port)), std::string::npos)
      << printed_;
  EXPECT_NE(printed_.back(), '\n');
}

/* A server that refuses each date `delays[n]` seconds behind its own clock,
 * naming the headers as `spelling` does, then accepts. */
LoopbackServer::Responder refuse_dates(std::vector<long> delays,
                                       std::string spelling) {
  return [=, n = size_t(0)](const std::string &request) mutable {
    if (n >= delays.size())
      return http_reply(200, "", "accepted");
    return http_reply(401,
                      spelling + date_after(request, delays[n++]) + "\r\n");
  };
}

/* Each date refusal moves the offset by the server's lead and sends the
 * request again, newly dated and signed: at most three attempts in all. A
 * request without a date is not sent again. */
TEST_F(SendRequest, DateRefusalsResynchroniseTheClock) {
  const char *usual = "auth_error: 1\r\nDate: ";
  const struct {
    const char *user;
    std::vector<long> delays;
    const char *spelling;
    int result;
    size_t requests;
    int64_t offset;
  } cases[] = {{"u", {3600}, usual, 0, 2, 3600},
               {"u", {-120}, "AUTH_ERROR: 1\r\nDATE: ", 0, 2, -120},
               {"u", {-120}, "auth_error:1\r\ndate:", 0, 2, -120},
               {"u", {-120}, "X-Auth_Error: 1\r\nDate:  ", 0, 2, -120},
               {"u", {3600, 3600, 3600, 3600}, usual, -3, 3, 3 * 3600},
               {nullptr, {3600}, usual, -3, 1, 0}};
  for (const auto &c : cases) {
    reset(c.user);
    client_context_set_password(context(), "pw");
    LoopbackServer server(refuse_dates(c.delays, c.spelling));
    std::string out = "kept";
    EXPECT_EQ(send(server, "/sync", "b", &out), c.result) << c.spelling;
    EXPECT_EQ(out, c.result == 0 ? "accepted" : "kept");
    EXPECT_EQ(context()->clock_offset, c.offset);
    const std::vector<std::string> requests = server.requests();
    ASSERT_EQ(requests.size(), c.requests);
    for (size_t n = 1; n < requests.size(); ++n) {
      const long moved =
          long(request_time(requests[n]) - request_time(requests[n - 1]));
      EXPECT_GE(moved, c.delays[n - 1]);
      EXPECT_LE(moved, c.delays[n - 1] + 2);
      EXPECT_EQ(line_value(requests[n], "AUTHENTICATION:"),
                expected_authentication(requests[n], "/sync", "b",
                                        oracle_sha1_hex("pw"), false));
    }
  }
}

TEST_F(SendRequest, RedirectionsAreFollowed) {
  for (int status : {302, 307}) {
    LoopbackServer server({http_reply(status, "Location: /next\r\n", "moved"),
                           http_reply(200, "", "landed")});
    std::string out;
    EXPECT_EQ(send(server, "/first", "payload", &out), 0) << status;
    EXPECT_EQ(out, "landed");
    ASSERT_EQ(server.request_count(), 2u);
    const std::string second = server.requests()[1];
    EXPECT_NE(request_lines(second)[0].find(" /next "), std::string::npos);
    if (status == 307) {
      EXPECT_EQ(request_body(second), "payload");
    }
  }
}

/* A CR, LF or NUL in a token that would be sent, or in the key, refuses
 * the request, and so does a NUL in the path; a line break in the path
 * makes a URL that libcurl rejects. Nothing reaches the server. */
TEST_F(SendRequest, ValuesThatWouldBreakALineAreNeverSent) {
  for (const std::string &bad :
       {std::string("a\rb"), std::string("a\nb"), std::string("a\0b", 3)}) {
    LoopbackServer server({http_reply(200, "", "sent")});
    std::string out = "kept";
    reset("u");
    context()->token = new std::string(bad);
    EXPECT_EQ(send(server, "/t", "", &out), -1);
    reset(nullptr);
    client_context_set_auth_key(context(), nullptr);
    context()->auth_key = new std::string(bad);
    EXPECT_EQ(send(server, "/k", "", &out), -1);
    EXPECT_EQ(server.request_count(), 0u);
    EXPECT_EQ(out, "kept");

    reset(nullptr); // a token that is not sent breaks nothing
    context()->token = new std::string(bad);
    EXPECT_EQ(send(server, "/n", "", &out), 0);
    EXPECT_EQ(out, "sent");
  }
  LoopbackServer server({http_reply(200)});
  std::string out = "kept";
  EXPECT_EQ(send(server, std::string("/a\0b", 4), "", &out), -1);
  EXPECT_EQ(send(server, "/a\r\nX-Injected: 1", "", &out), -2);
  EXPECT_EQ(printed_.compare(0, 13, "Error: [3] - "), 0) << printed_;
  EXPECT_EQ(server.request_count(), 0u);
  EXPECT_EQ(out, "kept");
  EXPECT_EQ(send_request(nullptr, "/", "", &out), -1);
  EXPECT_EQ(send_request(context(), "/", "", nullptr), -1);
}

TEST_F(SendRequest, VerboseSwitchesOnLibcurlsTrace) {
  for (uint8_t verbose : {0, 1}) {
    LoopbackServer server({http_reply(200)});
    context()->verbose = verbose;
    std::string out;
    const std::string trace =
        capture_output(STDERR_FILENO, [&] { send(server, "/v", "", &out); });
    EXPECT_EQ(trace.empty(), verbose == 0) << trace;
  }
}

} // namespace
