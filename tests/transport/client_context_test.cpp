/* The client record: defaults, setters, and the key file reader. */
#include <cstdlib>
#include <string>
#include <unistd.h>

#include <gtest/gtest.h>

#include "transport_helpers.h"
#include "transport_internal.h"
#include "velmora/transport.h"

namespace {

TEST(ClientContext, FreshRecordHasTheDefaults) {
  Context context(client_context_new());
  ASSERT_NE(context, nullptr);
  EXPECT_EQ(context->user, nullptr);
  EXPECT_EQ(context->password, nullptr);
  EXPECT_EQ(context->password_sha1, nullptr);
  EXPECT_EQ(context->token, nullptr);
  EXPECT_EQ(*context->host, "127.0.0.1");
  EXPECT_EQ(context->port, 8888);
  EXPECT_EQ(context->clock_offset, 0);
  EXPECT_EQ(context->verbose, 0);
  EXPECT_EQ(*context->auth_key, getLocalAuthKey());
  EXPECT_EQ(client_context_get_user(context.get()), nullptr);

  client_context_s own; // init and clean on the caller's storage, twice
  for (int round = 0; round < 2; ++round) {
    client_context_init(&own);
    client_context_set_user(&own, "ann");
    client_context_set_password_hash(&own, "abc");
    EXPECT_EQ(*own.host, "127.0.0.1");
    client_context_clean(&own);
    EXPECT_EQ(own.password_sha1, nullptr);
  }
}

/* Each text setter keeps its own copy and takes back the text its field
 * lent. "" leaves the user and the password absent but is a text for the
 * others; null leaves a field absent, but the host empty. */
TEST(ClientContext, TextSettersCopyAndMapEmptyAndNull) {
  const struct {
    int (*set)(client_context_s *, const char *);
    std::string *client_context_s::*field;
    bool empty_is_absent, null_is_empty;
  } setters[] = {
      {client_context_set_user, &client_context_s::user, true, false},
      {client_context_set_password, &client_context_s::password, true, false},
      {client_context_set_token, &client_context_s::token, false, false},
      {client_context_set_auth_key, &client_context_s::auth_key, false, false},
      {client_context_set_host, &client_context_s::host, false, true}};
  Context context(client_context_new());
  client_context_s *c = context.get();
  for (const auto &s : setters) {
    std::string given = "given";
    EXPECT_EQ(s.set(c, given.c_str()), 0);
    given[0] = 'X';
    ASSERT_NE(c->*s.field, nullptr);
    EXPECT_EQ(s.set(c, (c->*s.field)->c_str()), 0);
    EXPECT_EQ(*(c->*s.field), "given");
    s.set(c, "");
    EXPECT_EQ(c->*s.field == nullptr, s.empty_is_absent);
    s.set(c, nullptr);
    EXPECT_EQ(c->*s.field == nullptr, !s.null_is_empty);
  }
  EXPECT_EQ(*c->host, "");
  client_context_set_user(c, "bob");
  EXPECT_STREQ(client_context_get_user(c), "bob");
  client_context_set_token(c, "t");
  EXPECT_EQ(client_context_invalidate_token(c), 0);
  EXPECT_EQ(c->token, nullptr);
  EXPECT_EQ(client_context_set_port(c, -5), 0);
  EXPECT_EQ(c->port, -5);

  EXPECT_EQ(client_context_get_user(nullptr), nullptr);
  EXPECT_EQ(client_context_set_user(nullptr, "u"), 0);
  client_context_clean(nullptr);
  client_context_free(nullptr);
}

TEST(ClientContext, PasswordAndHashReplaceEachOther) {
  Context context(client_context_new());
  client_context_s *c = context.get();
  client_context_set_password(c, "pw");
  client_context_set_password_hash(c, "0123456789abcdef");
  EXPECT_EQ(c->password, nullptr);
  client_context_set_password_hash(c, client_context_get_password_sha1(c));
  EXPECT_STREQ(client_context_get_password_sha1(c), "0123456789abcdef");
  client_context_set_password(c, "other");
  EXPECT_EQ(client_context_get_password_sha1(c), nullptr);
  EXPECT_EQ(*c->password, "other");
  client_context_set_password_hash(c, nullptr);
  EXPECT_EQ(c->password, nullptr);
  EXPECT_EQ(c->password_sha1, nullptr);
}

/* The key that the reader finds in a temporary file holding `content`. */
std::string key_of_file(const std::string &content) {
  char name[] = "/tmp/velmora-key-XXXXXX";
  int fd = mkstemp(name);
  if (fd < 0)
    return "mkstemp failed";
  bool written =
      write(fd, content.data(), content.size()) == ssize_t(content.size());
  close(fd);
  std::string key = written ? velmora::read_local_auth_key(name) : "write failed";
  unlink(name);
  return key;
}

TEST(KeyFile, FirstLineIsTheKeyAndNoLineGivesNoKey) {
  EXPECT_EQ(velmora::read_local_auth_key("/nonexistent/velmora/local_auth.key"),
            "NO KEY");
  EXPECT_EQ(velmora::read_local_auth_key(nullptr), "NO KEY");
  const std::string hundred(100, 'k');
  const struct {
    std::string content, key;
  } cases[] = {{"", "NO KEY"},
               {std::string("\0abc\n", 5), "NO KEY"},
               {"abc\r\n", "abc"},
               {"abc", "abc"},
               {"\n", ""},
               {"abc\r\r\n", "abc"},
               {" \tspaced  \r\n", " \tspaced  "},
               {"first\nsecond\n", "first"},
               {hundred + "\n", hundred.substr(0, 79)},
               {std::string("ab\0cd\n", 6), "ab"}};
  for (const auto &c : cases)
    EXPECT_EQ(key_of_file(c.content), c.key)
        << "content: " << ::testing::PrintToString(c.content);
}

} // namespace
