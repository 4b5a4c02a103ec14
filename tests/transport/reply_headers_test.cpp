/* Reply header lookup, blank stripping and the test-tool leftovers. */
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "capture_stdout.h"
#include "velmora/transport.h"

namespace {

TEST(ExtractHeader, FindsTheValueUpToTheLineFeedInAnyCase) {
  const std::string reply =
      "HTTP/1.1 401 Unauthorized\r\nX-Other: 1\r\nauth_error: 1\r\n"
      "DATE: Mon, 01 Jan 2024 10:00:00 GMT\r\n\r\n";
  const struct {
    std::string headers, name;
    int code;
    std::string value;
  } cases[] = {
      {reply, "AUTH_ERROR:", 0, " 1\r"},
      {reply, "Date:", 0, " Mon, 01 Jan 2024 10:00:00 GMT\r"},
      {"X-Backup-Date: y\r\nDate: z\r\n", "Date:", 0, " y\r"},
      {"Date:\n", "Date:", 0, ""},
      {"Date: no line end", "Date:", -2, "unchanged"},
      {std::string("Date: early\0\n", 13), "Date:", -2, "unchanged"},
      {std::string("Server: a\0Date: b\n", 18), "Date:", -1, "unchanged"},
      {reply, "Location:", -1, "unchanged"},
      {"Dat", "Date:", -1, "unchanged"},
      {"ab\ncd\n", "", 0, "ab"},
      {"a\nb: c\n", "a\nb:", 0, " c"}};
  for (const auto &c : cases) {
    std::string headers = c.headers;
    std::string value = "unchanged";
    EXPECT_EQ(extract_header(&headers, c.name, value), c.code)
        << ::testing::PrintToString(c.headers) << " / " << c.name;
    EXPECT_EQ(value, c.value) << ::testing::PrintToString(c.headers);
    EXPECT_EQ(headers, c.headers);
  }
  std::string value = "kept";
  EXPECT_EQ(extract_header(nullptr, "Date:", value), -1);
  EXPECT_EQ(value, "kept");
}

TEST(StripBlanks, RemovesOnlyOuterSpaces) {
  const struct {
    std::string text, stripped;
  } cases[] = {{" x\r", "x\r"},
               {"  a b  ", "a b"},
               {"   ", ""},
               {"\ta\t", "\ta\t"},
               {"\r\n x \r\n", "\r\n x \r\n"},
               {std::string(" \0 ", 3), std::string("\0", 1)}};
  for (const auto &c : cases) {
    std::string text = c.text;
    std::unique_ptr<std::string> stripped(stripLeadingAndTrailingBlanks(text));
    ASSERT_NE(stripped, nullptr) << ::testing::PrintToString(c.text);
    EXPECT_EQ(*stripped, c.stripped) << ::testing::PrintToString(c.text);
    EXPECT_EQ(text, c.text);
  }
  std::string empty;
  EXPECT_EQ(stripLeadingAndTrailingBlanks(empty), nullptr);
}

TEST(TestToolLeftovers, WriteTheirTexts) {
  EXPECT_EQ(capture_stdout([] { usage(); }),
            "curltest: \n\n  Usage:  curltest url\n\n");
  size_t returned = 1;
  char buffer[8];
  EXPECT_EQ(capture_stdout([&] { returned = reader(buffer, 1, 8, nullptr); }),
            "READING source info");
  EXPECT_EQ(returned, 0u);
}

} // namespace
