#include <cstdio>
#include <ctime>
#include <string>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "capture_stdout.h"
#include "loopback_server.h"
#include "transport_helpers.h"
#include "velmora/transport.h"

namespace {

const std::string unauthorized_date = "auth_error: 1\r\n";

class SendRequest : public ::testing::Test {
protected:
  void SetUp() override {
    context_.reset(client_context_new());
    ASSERT_NE(context_, nullptr);
    client_context_set_auth_key(context_.get(), "host-key");
  }

  /* Sends to `server`; what the call printed lands in `printed_`. */
  int send(const LoopbackServer &server, const std::string &path,
           const std::string &body, std::string *out) {
    client_context_set_port(context_.get(), server.port());
    int result = 0;
    printed_ = capture_stdout(
        [&] { result = send_request(context_.get(), path, body, out); });
    return result;
  }

  /* The AUTHENTICATION value a correct client sends for `request`. */
  std::string expected_authentication(const std::string &request,
                                      const std::string &path,
                                      const std::string &body,
                                      const std::string &key, bool token) {
    std::string to_sign = "POST " + path +
                          "\nDate: " + line_value(request, "Date:") + "\n" +
                          body;
    std::string user = oracle_base64(*context_->user);
    std::string signature = oracle_hmac_base64(key, to_sign);
    return token ? "TOKEN-DATE " + user + ":" + key + ":" + signature
                 : "HMAC-SHA1-DATE " + user + ":" + signature;
  }

  client_context_s *context() {
    return context_.get();
  }

  Context context_;
  std::string printed_;
};

TEST_F(SendRequest, UnsignedRequestCarriesOnlyTheKeyLine) {
  for (const char *user : {"", static_cast<const char *>(nullptr)}) {
    LoopbackServer server({http_reply(200, "", "ok")});
    client_context_set_user(context(), user);
    client_context_set_token(context(), "tok");
    std::string out;
    const std::string body(4096, 'b');
    ASSERT_EQ(send(server, "/plain", body, &out), 0);
    EXPECT_EQ(out, "ok");
    ASSERT_EQ(server.request_count(), 1u);
    std::string request = server.requests()[0];
    EXPECT_EQ(line_value(request, "Date:"), "<absent>");
    EXPECT_EQ(line_value(request, "AUTHENTICATION:"), "<absent>");
    EXPECT_EQ(line_value(request, "Expect:"), "<absent>");
    EXPECT_EQ(line_value(request, "LOCAL_AUTH_KEY: "), "host-key");
    EXPECT_EQ(request.find("tok"), std::string::npos);
    EXPECT_EQ(request_body(request), body);
    EXPECT_EQ(context()->password_sha1, nullptr);
    client_context_invalidate_token(context());
  }
}

TEST_F(SendRequest, KeyIsSentAsItIsEvenEmpty) {
  const struct {
    std::string key, line;
  } cases[] = {{"", "LOCAL_AUTH_KEY:"},
               {"   ", "LOCAL_AUTH_KEY:"},
               {" spaced\t", "LOCAL_AUTH_KEY:  spaced\t"},
               {"NO KEY", "LOCAL_AUTH_KEY: NO KEY"}};
  for (const auto &c : cases) {
    LoopbackServer server({http_reply(200)});
    client_context_set_auth_key(context(), c.key.c_str());
    std::string out;
    ASSERT_EQ(send(server, "/k", "", &out), 0);
    EXPECT_EQ(line_value(server.requests()[0], "LOCAL_AUTH_KEY"),
              c.line.substr(14))
        << ::testing::PrintToString(c.key);
  }
}

TEST_F(SendRequest, UrlIsHostPortAndPathUnchanged) {
  const struct {
    const char *host, *path;
  } cases[] = {{"127.0.0.1", "/x"}, {"localhost", "/a/b?c=d&e=%20f"}};
  for (const auto &c : cases) {
    LoopbackServer server({http_reply(200)});
    client_context_set_host(context(), c.host);
    std::string out;
    ASSERT_EQ(send(server, c.path, "", &out), 0) << printed_;
    std::vector<std::string> lines = request_lines(server.requests()[0]);
    EXPECT_EQ(lines[0], std::string("POST ") + c.path + " HTTP/1.1");
    EXPECT_EQ(line_value(server.requests()[0], "Host: "),
              std::string(c.host) + ":" + std::to_string(server.port()));
  }
}

TEST_F(SendRequest, SigningSchemesAndKeys) {
  const std::string body = "{\"n\":1}";
  const struct {
    const char *label;
    const char *password, *hash, *token;
    std::string key;
    bool token_scheme;
  } cases[] = {
      {"password", "pw", nullptr, nullptr, oracle_sha1_hex("pw"), false},
      {"no password", nullptr, nullptr, nullptr, oracle_sha1_hex(""), false},
      {"given hash", nullptr, "any text at all", nullptr, "any text at all",
       false},
      {"token", nullptr, nullptr, "tok-123", "tok-123", true},
      {"empty token", nullptr, nullptr, "", "", true},
      {"token wins over password", "pw", nullptr, "t", "t", true},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.label);
    context_.reset(client_context_new());
    client_context_set_user(context(), "user@example");
    if (c.password)
      client_context_set_password(context(), c.password);
    if (c.hash)
      client_context_set_password_hash(context(), c.hash);
    if (c.token)
      client_context_set_token(context(), c.token);
    LoopbackServer server({http_reply(200)});
    std::string out;
    ASSERT_EQ(send(server, "/sign", body, &out), 0);
    std::string request = server.requests()[0];
    EXPECT_EQ(
        line_value(request, "AUTHENTICATION:"),
        expected_authentication(request, "/sign", body, c.key, c.token_scheme));
    if (c.token_scheme)
      EXPECT_EQ(context()->password_sha1, nullptr);
    else
      EXPECT_STREQ(client_context_get_password_sha1(context()), c.key.c_str());
  }
}

TEST_F(SendRequest, HeaderLinesAndDateSpelling) {
  client_context_set_user(context(), "u");
  LoopbackServer server({http_reply(200)});
  std::string out;
  ASSERT_EQ(send(server, "/h", "", &out), 0);
  std::vector<std::string> lines = request_lines(server.requests()[0]);
  size_t date = 0;
  while (date < lines.size() && lines[date].compare(0, 5, "Date:") != 0)
    ++date;
  ASSERT_LT(date + 2, lines.size());
  EXPECT_NE(lines[date][5], ' ');
  EXPECT_EQ(lines[date + 1].compare(0, 15, "AUTHENTICATION:"), 0);
  EXPECT_EQ(lines[date + 2], "LOCAL_AUTH_KEY: host-key");
  EXPECT_EQ(request_date(server.requests()[0]).tm_year == -1, false);
}

TEST_F(SendRequest, DateIsTheLocalClockPlusTheOffset) {
  client_context_set_user(context(), "u");
  for (int64_t offset : {int64_t(0), int64_t(3600), int64_t(-400) * 86400}) {
    context()->clock_offset = offset;
    LoopbackServer server({http_reply(200)});
    std::string out;
    time_t before = time(nullptr) + offset;
    ASSERT_EQ(send(server, "/d", "", &out), 0);
    time_t after = time(nullptr) + offset;
    struct tm low, high, sent = request_date(server.requests()[0]);
    localtime_r(&before, &low);
    localtime_r(&after, &high);
    EXPECT_GE(timegm(&sent), timegm(&low)) << offset;
    EXPECT_LE(timegm(&sent), timegm(&high)) << offset;
  }
}

TEST_F(SendRequest, PasswordHashIsComputedOnceAndDroppedByANewPassword) {
  client_context_set_user(context(), "u");
  client_context_set_password(context(), "first");
  LoopbackServer server({http_reply(200)});
  std::string out;
  ASSERT_EQ(send(server, "/p", "", &out), 0);
  char *computed = client_context_get_password_sha1(context());
  ASSERT_STREQ(computed, oracle_sha1_hex("first").c_str());
  ASSERT_EQ(send(server, "/p", "", &out), 0);
  EXPECT_EQ(client_context_get_password_sha1(context()), computed);

  client_context_set_password(context(), "second");
  EXPECT_EQ(client_context_get_password_sha1(context()), nullptr);
  ASSERT_EQ(send(server, "/p", "", &out), 0);
  EXPECT_STREQ(client_context_get_password_sha1(context()),
               oracle_sha1_hex("second").c_str());
  std::string last = server.requests()[2];
  EXPECT_EQ(line_value(last, "AUTHENTICATION:"),
            expected_authentication(last, "/p", "", oracle_sha1_hex("second"),
                                    false));
}

TEST_F(SendRequest, BodyWithNulBytesIsSentAndSignedWhole) {
  client_context_set_user(context(), "u");
  client_context_set_password(context(), "pw");
  const std::string body("a\0b\0\xff\n\0", 7);
  LoopbackServer server({http_reply(200, "", std::string("r\0s", 3))});
  std::string out;
  ASSERT_EQ(send(server, "/bin", body, &out), 0);
  EXPECT_EQ(out, std::string("r\0s", 3));
  std::string request = server.requests()[0];
  EXPECT_EQ(request_body(request), body);
  EXPECT_EQ(line_value(request, "AUTHENTICATION:"),
            expected_authentication(request, "/bin", body,
                                    oracle_sha1_hex("pw"), false));
}

TEST_F(SendRequest, StatusDecidesTheResultAndTheBodyIsDelivered) {
  const struct {
    int status, result;
  } cases[] = {{200, 0}, {404, -1}, {500, -1}, {201, -1}, {403, -1}};
  for (const auto &c : cases) {
    LoopbackServer server(
        {http_reply(c.status, "", "body " + std::to_string(c.status))});
    std::string out = "stale";
    EXPECT_EQ(send(server, "/s", "q", &out), c.result) << c.status;
    EXPECT_EQ(out, "body " + std::to_string(c.status));
    EXPECT_EQ(printed_, "");
  }
}

TEST_F(SendRequest, RefusedConnectionPrintsTheErrorAndKeepsOut) {
  client_context_set_user(context(), "u");
  client_context_set_port(context(), closed_port());
  std::string out = "kept";
  int result = 0;
  printed_ = capture_stdout(
      [&] { result = send_request(context(), "/none", "body", &out); });
  EXPECT_EQ(result, -2);
  EXPECT_EQ(out, "kept");
  const std::string prefix = "Error: [7] - ";
  ASSERT_GT(printed_.size(), prefix.size());
  EXPECT_EQ(printed_.compare(0, prefix.size(), prefix), 0) << printed_;
  EXPECT_NE(printed_.find(std::to_string(context()->port)), std::string::npos)
      << printed_;
  EXPECT_NE(printed_.back(), '\n');
}

TEST_F(SendRequest, EmptyReplyIsATransferFailure) {
  LoopbackServer server({""});
  std::string out = "kept";
  EXPECT_EQ(send(server, "/e", "", &out), -2);
  EXPECT_EQ(out, "kept");
  EXPECT_EQ(printed_.compare(0, 14, "Error: [52] - "), 0) << printed_;
}

TEST_F(SendRequest, RefusalsOtherThanTheDateGiveMinusThree) {
  client_context_set_user(context(), "u");
  const std::string date = "Date: Mon, 01 Jan 2024 10:00:00 GMT\r\n";
  const std::string cases[] = {
      "",
      date,
      "auth_error: 2\r\n" + date,
      "auth_error: 0\r\n" + date,
      "auth_error: x1\r\n" + date,
      "auth_error: 11\r\n" + date,
      "auth_error: 1\r\n",
      "X-Note: auth_error\r\n",
  };
  for (const std::string &headers : cases) {
    LoopbackServer server({http_reply(401, headers, "denied")});
    std::string out = "kept";
    EXPECT_EQ(send(server, "/r", "", &out), -3) << headers;
    EXPECT_EQ(out, "kept");
    EXPECT_EQ(server.request_count(), 1u);
    EXPECT_EQ(context()->clock_offset, 0);
    EXPECT_EQ(printed_, "");
  }
}

/* A server that refuses each date `delays[n]` seconds behind its own clock,
 * then accepts. */
LoopbackServer::Responder refuse_dates(std::vector<long> delays,
                                       const std::string &spelling = "") {
  return [delays, spelling, n = size_t(0)](const std::string &request) mutable {
    if (n >= delays.size())
      return http_reply(200, "", "accepted");
    std::string headers =
        spelling.empty() ? "auth_error: 1\r\nDate: " : spelling;
    return http_reply(401, headers + date_after(request, delays[n++]) + "\r\n",
                      "refused");
  };
}

TEST_F(SendRequest, ServerOneHourAheadResynchronisesAndSendsAgain) {
  client_context_set_user(context(), "u");
  client_context_set_password(context(), "pw");
  LoopbackServer server(refuse_dates({3600}));
  std::string out;
  EXPECT_EQ(send(server, "/sync", "b", &out), 0);
  EXPECT_EQ(out, "accepted");
  EXPECT_EQ(context()->clock_offset, 3600);
  ASSERT_EQ(server.request_count(), 2u);
  std::vector<std::string> requests = server.requests();
  struct tm first = request_date(requests[0]),
            second = request_date(requests[1]);
  long moved = long(timegm(&second) - timegm(&first));
  EXPECT_GE(moved, 3600);
  EXPECT_LE(moved, 3602);
  EXPECT_EQ(line_value(requests[1], "AUTHENTICATION:"),
            expected_authentication(requests[1], "/sync", "b",
                                    oracle_sha1_hex("pw"), false));
}

TEST_F(SendRequest, ReplyHeadersMatchInAnyLetterCase) {
  client_context_set_user(context(), "u");
  for (const char *spelling :
       {"AUTH_ERROR: 1\r\nDATE: ", "auth_error:1\r\ndate:",
        "X-Auth_Error: 1\r\nDate:  "}) {
    context()->clock_offset = 0;
    LoopbackServer server(refuse_dates({-120}, spelling));
    std::string out;
    EXPECT_EQ(send(server, "/c", "", &out), 0) << spelling;
    EXPECT_EQ(context()->clock_offset, -120) << spelling;
  }
}

TEST_F(SendRequest, OffsetFollowsTheCalendarAcrossYearsAndLeapDays) {
  client_context_set_user(context(), "u");
  const struct {
    int year, month, day, hour;
    long delay;
  } cases[] = {
      {2099, 12, 31, 23, 60L * 86400}, // into 2100, not a leap year
      {2000, 2, 28, 12, 2L * 86400},   // over 29 February 2000
      {2024, 1, 1, 0, -3L * 86400},    // back into 2023
      {1999, 6, 1, 8, 800L * 86400},   // two years ahead
  };
  for (const auto &c : cases) {
    struct tm local {};
    local.tm_year = c.year - 1900;
    local.tm_mon = c.month - 1;
    local.tm_mday = c.day;
    local.tm_hour = c.hour;
    local.tm_min = 59;
    local.tm_isdst = -1;
    const int64_t start = int64_t(mktime(&local)) - time(nullptr);
    context()->clock_offset = start;
    LoopbackServer server(refuse_dates({c.delay}));
    std::string out;
    EXPECT_EQ(send(server, "/y", "", &out), 0) << c.year;
    EXPECT_EQ(context()->clock_offset, start + c.delay) << c.year;
  }
}

TEST_F(SendRequest, AttemptsAreBounded) {
  client_context_set_user(context(), "u");
  LoopbackServer server(refuse_dates({3600, 3600, 3600, 3600, 3600}));
  std::string out = "kept";
  EXPECT_EQ(send(server, "/loop", "", &out), -3);
  EXPECT_EQ(server.request_count(), 3u);
  EXPECT_EQ(context()->clock_offset, 3 * 3600);
  EXPECT_EQ(out, "kept");
}

TEST_F(SendRequest, UnsignedRequestRefusedForItsDateIsNotResent) {
  LoopbackServer server(refuse_dates({3600}));
  std::string out = "kept";
  EXPECT_EQ(send(server, "/u", "", &out), -3);
  EXPECT_EQ(server.request_count(), 1u);
  EXPECT_EQ(context()->clock_offset, 0);
  EXPECT_EQ(out, "kept");
}

TEST_F(SendRequest, UnparsableServerDateGivesMinusTwo) {
  client_context_set_user(context(), "u");
  for (const char *date : {"Date: yesterday\r\n", "Date:\r\n", "Date:    \r\n",
                           "Date: Mon, 99 Jan 2024 10:00:00 GMT\r\n"}) {
    LoopbackServer server(
        {http_reply(401, "auth_error: 1\r\n" + std::string(date))});
    std::string out = "kept";
    EXPECT_EQ(send(server, "/bad", "", &out), -2) << date;
    EXPECT_EQ(server.request_count(), 1u);
    EXPECT_EQ(context()->clock_offset, 0);
    EXPECT_EQ(out, "kept");
    EXPECT_EQ(printed_, "");
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
    std::string second = server.requests()[1];
    EXPECT_NE(request_lines(second)[0].find(" /next "), std::string::npos);
    if (status == 307) {
      EXPECT_EQ(request_body(second), "payload");
    }
  }
}

TEST_F(SendRequest, LineBreakingValuesAreNeverSent) {
  const std::string breakers[] = {"a\rb", "a\nb", std::string("a\0b", 3),
                                  "\r\nX-Injected: 1"};
  for (const std::string &bad : breakers) {
    LoopbackServer server({http_reply(200, "", "sent")});
    std::string out = "kept";

    context_.reset(client_context_new());
    client_context_set_user(context(), "u");
    context()->token = new std::string(bad);
    EXPECT_EQ(send(server, "/t", "", &out), -1);

    context_.reset(client_context_new());
    delete context()->auth_key;
    context()->auth_key = new std::string(bad);
    EXPECT_EQ(send(server, "/k", "", &out), -1);

    EXPECT_EQ(server.request_count(), 0u);
    EXPECT_EQ(out, "kept");

    // A token that is not sent cannot break anything.
    context_.reset(client_context_new());
    client_context_set_auth_key(context(), "fine");
    context()->token = new std::string(bad);
    EXPECT_EQ(send(server, "/n", "", &out), 0);
    EXPECT_EQ(out, "sent");
  }
}

TEST_F(SendRequest, UrlThatCannotCarryThePathIsNotUsed) {
  LoopbackServer server({http_reply(200)});
  std::string out = "kept";
  EXPECT_EQ(send(server, std::string("/a\0b", 4), "", &out), -1);
  EXPECT_EQ(send(server, "/a\r\nX-Injected: 1", "", &out), -2);
  EXPECT_EQ(printed_.compare(0, 13, "Error: [3] - "), 0) << printed_;
  EXPECT_EQ(server.request_count(), 0u);
  EXPECT_EQ(out, "kept");
}

TEST_F(SendRequest, VerboseSwitchesOnLibcurlsTrace) {
  for (uint8_t verbose : {0, 1}) {
    LoopbackServer server({http_reply(200)});
    context()->verbose = verbose;
    client_context_set_port(context(), server.port());
    std::string out;
    FILE *sink = tmpfile();
    ASSERT_NE(sink, nullptr);
    fflush(stderr);
    int saved = dup(STDERR_FILENO);
    dup2(fileno(sink), STDERR_FILENO);
    int result = send_request(context(), "/v", "", &out);
    fflush(stderr);
    dup2(saved, STDERR_FILENO);
    close(saved);
    off_t written = lseek(fileno(sink), 0, SEEK_END);
    fclose(sink);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(written > 0, verbose != 0);
  }
}

TEST(SendRequestArguments, NullRecordOrOutIsRefused) {
  std::string out = "kept";
  EXPECT_EQ(send_request(nullptr, "/", "", &out), -1);
  Context context(client_context_new());
  EXPECT_EQ(send_request(context.get(), "/", "", nullptr), -1);
  EXPECT_EQ(out, "kept");
}

} // namespace
