#include <gtest/gtest.h>

#include <cctype>
#include <cstdlib>
#include <random>
#include <string>
#include <utility>

#include "oracles.h"
#include "velmora/digest.h"

namespace {

std::string encode(const std::string &bytes) {
  return base64_encode(bytes.data(), unsigned(bytes.size()));
}

/* The decoded bytes; the buffer is always freed, as callers must. */
std::string decode(const std::string &text) {
  char *out = nullptr;
  int length = -1;
  base64_decode(text, &out, length);
  std::string bytes = out ? std::string(out, size_t(length)) : "<null>";
  free(out);
  return bytes;
}

TEST(Base64, Rfc4648Vectors) {
  const std::pair<const char *, const char *> cases[] = {
      {"", ""},
      {"f", "Zg=="},
      {"fo", "Zm8="},
      {"foo", "Zm9v"},
      {"foob", "Zm9vYg=="},
      {"fooba", "Zm9vYmE="},
      {"foobar", "Zm9vYmFy"}};
  for (const auto &[bytes, text] : cases) {
    EXPECT_EQ(encode(bytes), text);
    EXPECT_EQ(decode(text), bytes) << text;
  }
}

/* Decoding stops at "=" or at the first character outside the alphabet;
 * a last group of two or three characters gives one or two bytes, a lone
 * character none. Padding and spare low bits are not checked. */
TEST(Base64, DecoderStopRules) {
  const std::pair<const char *, std::string> cases[] = {
      {"Zm9v\nYmFy", "foo"},
      {"Zm9v YmFy", "foo"},
      {"Zm9v-YmFy", "foo"},
      {"Zm9v_YmFy", "foo"},
      {"Zm9vYmFy\x80Zm9v", "foobar"},
      {"Zg", "f"},
      {"Zm8", "fo"},
      {"Zm9vY", "foo"},
      {"Zm9vYmFyZm9v=YmFy", "foobarfoo"},
      {"Zm=9v", "f"},
      {"=Zm9v", ""},
      {"Zh==", "f"},
      {"Zm9vYg=garbage", "foob"}};
  for (const auto &[text, bytes] : cases)
    EXPECT_EQ(decode(text), bytes) << testing::PrintToString(text);
}

/* The decoder as the contract states it, one character at a time (in the
 * "C" locale the letters and digits are exactly the alphabet's). */
std::string reference_decode(const std::string &text) {
  const std::string alphabet =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string bytes;
  unsigned s[4];
  size_t held = 0;
  for (unsigned char c : text) {
    if (c == '=' || !(isalnum(c) || c == '+' || c == '/'))
      break;
    s[held++] = unsigned(alphabet.find(char(c)));
    if (held == 4) {
      bytes += char(s[0] << 2 | (s[1] & 0x30) >> 4);
      bytes += char((s[1] & 0x0F) << 4 | (s[2] & 0x3C) >> 2);
      bytes += char((s[2] & 3) << 6 | s[3]);
      held = 0;
    }
  }
  if (held >= 2)
    bytes += char(s[0] << 2 | (s[1] & 0x30) >> 4);
  if (held == 3)
    bytes += char((s[1] & 0x0F) << 4 | (s[2] & 0x3C) >> 2);
  return bytes;
}

/* Every byte value at every position of the wide loop and of the tail. */
TEST(Base64, EveryCharacterAtEveryPositionMatchesTheContract) {
  for (size_t position = 0; position < 20; ++position)
    for (int c = 0; c < 256; ++c) {
      std::string text = "QUJDREVGR0hJSktMTU5P";
      text[position] = char(c);
      ASSERT_EQ(decode(text), reference_decode(text))
          << "byte " << c << " at " << position;
    }
}

/* Random lengths cover every alignment of the wide loops and their tails;
 * OpenSSL's block encoder is the independent oracle. */
TEST(Base64, RandomRoundTripsMatchOpenSsl) {
  std::mt19937 rng(64);
  for (int round = 0; round < 1500; ++round) {
    const std::string bytes =
        random_bytes(rng, rng() % (round < 100 ? 40 : 700));
    const std::string text = encode(bytes);
    ASSERT_EQ(text, oracle_base64(bytes)) << bytes.size() << " bytes";
    ASSERT_EQ(decode(text), bytes) << bytes.size() << " bytes";

    /* Cut anywhere, the decoder keeps every whole byte before the cut. */
    const size_t cut = rng() % (text.size() + 1);
    const std::string head = text.substr(0, cut);
    const size_t characters = std::min(head.find('='), head.size());
    const size_t whole =
        characters / 4 * 3 + (characters % 4 ? characters % 4 - 1 : 0);
    ASSERT_EQ(decode(head + "!" + text), bytes.substr(0, whole)) << cut;
  }
}

} // namespace
