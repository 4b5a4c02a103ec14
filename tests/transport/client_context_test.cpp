#include <cstdio>
#include <cstdlib>
#include <memory>
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
  ASSERT_NE(context->host, nullptr);
  EXPECT_EQ(*context->host, "127.0.0.1");
  EXPECT_EQ(context->port, 8888);
  EXPECT_EQ(context->clock_offset, 0);
  EXPECT_EQ(context->verbose, 0);
  ASSERT_NE(context->auth_key, nullptr);
  EXPECT_EQ(*context->auth_key, getLocalAuthKey());
  EXPECT_EQ(client_context_get_user(context.get()), nullptr);
  EXPECT_EQ(client_context_get_password_sha1(context.get()), nullptr);
}

TEST(ClientContext, InitAndCleanWorkOnCallerStorage) {
  client_context_s context;
  for (int round = 0; round < 2; ++round) {
    client_context_init(&context);
    client_context_set_user(&context, "ann");
    client_context_set_token(&context, "t");
    client_context_set_password_hash(&context, "abc");
    EXPECT_EQ(*context.host, "127.0.0.1");
    client_context_clean(&context);
    EXPECT_EQ(context.password_sha1, nullptr);
  }
}

TEST(ClientContext, SettersCopyAndMapEmptyTexts) {
  Context context(client_context_new());
  client_context_s *c = context.get();
  std::string name = "alice";
  EXPECT_EQ(client_context_set_user(c, name.c_str()), 0);
  name[0] = 'X';
  EXPECT_STREQ(client_context_get_user(c), "alice");
  EXPECT_EQ(client_context_set_user(c, ""), 0);
  EXPECT_EQ(c->user, nullptr);

  EXPECT_EQ(client_context_set_password(c, "secret"), 0);
  EXPECT_EQ(*c->password, "secret");
  EXPECT_EQ(client_context_set_password(c, ""), 0);
  EXPECT_EQ(c->password, nullptr);

  EXPECT_EQ(client_context_set_token(c, ""), 0);
  ASSERT_NE(c->token, nullptr);
  EXPECT_EQ(*c->token, "");
  EXPECT_EQ(client_context_invalidate_token(c), 0);
  EXPECT_EQ(c->token, nullptr);

  EXPECT_EQ(client_context_set_host(c, "example.invalid"), 0);
  EXPECT_EQ(*c->host, "example.invalid");
  EXPECT_EQ(client_context_set_port(c, -5), 0);
  EXPECT_EQ(c->port, -5);
  EXPECT_EQ(client_context_set_auth_key(c, ""), 0);
  ASSERT_NE(c->auth_key, nullptr);
  EXPECT_EQ(*c->auth_key, "");
}

TEST(ClientContext, PasswordAndHashReplaceEachOther) {
  Context context(client_context_new());
  client_context_s *c = context.get();
  client_context_set_password(c, "pw");
  client_context_set_password_hash(c,
                                   "0123456789abcdef0123456789abcdef01234567");
  EXPECT_EQ(c->password, nullptr);
  EXPECT_STREQ(client_context_get_password_sha1(c),
               "0123456789abcdef0123456789abcdef01234567");
  client_context_set_password(c, "other");
  EXPECT_EQ(client_context_get_password_sha1(c), nullptr);
  EXPECT_EQ(*c->password, "other");
}

TEST(ClientContext, SetterAcceptsTheTextItsGetterLent) {
  Context context(client_context_new());
  client_context_set_user(context.get(), "bob");
  client_context_set_user(context.get(),
                          client_context_get_user(context.get()));
  EXPECT_STREQ(client_context_get_user(context.get()), "bob");
  client_context_set_password_hash(context.get(), "h");
  client_context_set_password_hash(
      context.get(), client_context_get_password_sha1(context.get()));
  EXPECT_STREQ(client_context_get_password_sha1(context.get()), "h");
}

TEST(ClientContext, NullArgumentsHaveDefinedResults) {
  Context context(client_context_new());
  client_context_s *c = context.get();
  client_context_set_user(c, "u");
  client_context_set_token(c, "t");
  EXPECT_EQ(client_context_set_user(c, nullptr), 0);
  EXPECT_EQ(c->user, nullptr);
  EXPECT_EQ(client_context_set_token(c, nullptr), 0);
  EXPECT_EQ(c->token, nullptr);
  EXPECT_EQ(client_context_set_host(c, nullptr), 0);
  EXPECT_EQ(*c->host, "");
  EXPECT_EQ(client_context_set_password_hash(c, nullptr), 0);
  EXPECT_EQ(c->password_sha1, nullptr);
  EXPECT_EQ(client_context_get_user(nullptr), nullptr);
  EXPECT_EQ(client_context_set_port(nullptr, 1), 0);
  client_context_clean(nullptr);
  client_context_free(nullptr);
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
  std::string key = written ? read_local_auth_key(name) : "write failed";
  unlink(name);
  return key;
}

TEST(KeyFile, MissingFileGivesNoKey) {
  EXPECT_EQ(read_local_auth_key("/nonexistent/velmora/local_auth.key"),
            "NO KEY");
  EXPECT_EQ(read_local_auth_key(nullptr), "NO KEY");
}

TEST(KeyFile, FirstLineIsTheKey) {
  const std::string hundred(100, 'k');
  const struct {
    std::string content, key;
  } cases[] = {
      {"", "NO KEY"},
      {std::string("\0abc\n", 5), "NO KEY"},
      {"abc\r\n", "abc"},
      {"abc", "abc"},
      {"\n", ""},
      {"\r\n\r\n", ""},
      {"abc\r\r\n", "abc"},
      {" spaced \n", " spaced "},
      {"\ttabbed\t\r\n", "\ttabbed\t"},
      {"first\nsecond\n", "first"},
      {hundred + "\n", hundred.substr(0, 79)},
      {std::string(78, 'k') + "\r\n", std::string(78, 'k')},
      {std::string("ab\0cd\n", 6), "ab"},
  };
  for (const auto &c : cases)
    EXPECT_EQ(key_of_file(c.content), c.key)
        << "content: " << ::testing::PrintToString(c.content);
}

} // namespace
