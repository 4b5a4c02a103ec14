/* The client record and its key file, reply header lookup and the clock
 * arithmetic of re-synchronisation. */
#include <memory>
#include <unistd.h>

#include <gtest/gtest.h>

#include "transport_internal.h"
#include "velmora/transport.h"

namespace {

/* The key that the reader finds in a temporary file holding `content`. */
std::string key_of_file(const std::string &content) {
  char name[] = "/tmp/velmora-key-XXXXXX";
  const int fd = mkstemp(name);
  const bool written =
      write(fd, content.data(), content.size()) == ssize_t(content.size());
  close(fd);
  const std::string key = written ? read_local_auth_key(name) : "<unwritten>";
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

/* A fresh record has the defaults. Each text setter keeps its own copy,
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
  const std::unique_ptr<client_context_s, void (*)(client_context_s *)> context(
      client_context_new(), client_context_free);
  client_context_s *c = context.get();
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
  client_context_free(nullptr);
}

TEST(KeyFile, FirstLineIsTheKeyAndNoLineGivesNoKey) {
  EXPECT_EQ(read_local_auth_key("/nonexistent/local_auth.key"), "NO KEY");
  EXPECT_EQ(read_local_auth_key(nullptr), "NO KEY");
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
    EXPECT_EQ(clock_difference(fields(stamp), fields(server)),
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
