/* The one parse of each scalar type's text against the C library, a real's
 * truncation to a count, and the number tokens of JSON text against
 * jsoncpp. */
#include <climits>
#include <cmath>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <json/json.h>
#include <velmora/generated.h>

namespace {

using namespace velmora::detail;

/* The rows of a table written as one text, rows separated by '|'. */
std::vector<std::string> rows(const std::string &table) {
  std::vector<std::string> out;
  std::istringstream in(table);
  for (std::string row; std::getline(in, row, '|');)
    out.push_back(row);
  return out;
}

/* Every text ends at a quote, as in JSON, which must stop each parse as a
 * NUL stops the C library's. */
TEST(Numbers, ScalarTextsParseAsTheCLibraryDoes) {
  for (const std::string &text :
       rows("5|-7|+5| 12abc|-||12a|0x10|-1|2.5e3|nan(1)|-0|08|1e3x|0x|--5|"
            "-123456789012345678|123456789012345678|1234567890123456789|"
            "-9223372036854775809|0000000000000000000042|99999999999999999999|"
            "18446744073709551616|12345678901234567:")) {
    const std::string quoted = text + "\"9";
    const std::string_view view(quoted.data(), text.size());
    EXPECT_EQ(long_text(view), strtoll(text.c_str(), nullptr, 10)) << text;
    EXPECT_EQ(ulong_text(view), strtoull(text.c_str(), nullptr, 0)) << text;
    const double real_value = double_text(view);
    const double peer = strtod(text.c_str(), nullptr);
    EXPECT_TRUE(real_value == peer ||
                (std::isnan(real_value) && std::isnan(peer)))
        << text;
  }
}

TEST(Numbers, RealsTruncateTowardZeroAndSaturate) {
  const std::pair<double, int64_t> cases[] = {
      {NAN, 0},
      {-0.5, 0},
      {1.9, 1},
      {-1.9, -1},
      {9223372036854775808.0, INT64_MAX},
      {-9223372036854775808.0, INT64_MIN},
      {-9.3e18, INT64_MIN},
      {9223372036854774784.0, 9223372036854774784}};
  for (const auto &[real_value, count] : cases)
    EXPECT_EQ(truncated(real_value), count) << real_value;
}

/* Each token with what reads it ("i": integer, "r": real) and, read, the
 * value jsoncpp gives; refused, the cursor stays. */
TEST(Numbers, TokensReadAsJsoncppReadsThem) {
  for (const std::string &row :
       rows("0 ir|-0 ir|01 |123456789012345678 ir|1234567890123456789 r|1.0 r|"
            "-86400.5 r|1e5 |- |1. |.5 |00000000.0 |12345678 ir|"
            "123456789012345.0 r|9007199254740993.0 r|12345678.00000001 r|"
            "1234567890123456789012345 |7777777? ")) {
    const std::string token = row.substr(0, row.rfind(' '));
    const std::string readers = row.substr(row.rfind(' ') + 1);
    for (const char *after : {"", ",", " ]", "}"}) {
      const std::string text = token + after;
      Cursor as_integer{text.data(), text.data() + text.size(), 0};
      Cursor as_real = as_integer;
      int64_t whole = 0;
      double real_value = 0;
      Json::Value peer;
      const bool is_integer = integer(as_integer, &whole);
      ASSERT_EQ(is_integer, readers.find('i') != std::string::npos) << text;
      ASSERT_EQ(real(as_real, &real_value), readers.find('r') != readers.npos)
          << text;
      if (readers.empty()) {
        EXPECT_EQ(as_integer.at, text.data()) << text;
        continue;
      }
      ASSERT_TRUE(parse_span(token.data(), token.data() + token.size(), &peer));
      EXPECT_EQ(real_value, peer.asDouble()) << text;
      EXPECT_EQ(whole, is_integer ? peer.asInt64() : 0) << text;
      EXPECT_EQ(as_real.at, text.data() + token.size()) << text;
    }
  }
}

} // namespace
