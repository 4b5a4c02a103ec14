#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>

#include "capture_stdout.h"
#include "oracles.h"
#include "velmora/digest.h"

namespace {

std::string hmac_hex(const std::string &key, const std::string &data) {
  char out[20];
  hmac_sha(key.data(), int(key.size()), data.data(), int(data.size()), out, 20);
  return to_hex(out, 20);
}

TEST(HmacSha, Rfc2202Cases) {
  const struct {
    std::string key, data;
    const char *hex;
  } cases[] = {
      {std::string(20, '\x0b'), "Hi There",
       "b617318655057264e28bc0b6fb378c8ef146be00"},
      {"Jefe", "what do ya want for nothing?",
       "effcdf6ae5eb2fa2d27416d5f184df9c259a7c79"},
      {std::string(20, '\xaa'), std::string(50, '\xdd'),
       "125d7342b9ac11cd91a39af48aa17b4f63f175d3"},
      {std::string("\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0a\x0b\x0c\x0d"
                   "\x0e\x0f\x10\x11\x12\x13\x14\x15\x16\x17\x18\x19"),
       std::string(50, '\xcd'), "4c9007f4026250c6bc8414f9bf50c86c2d7235da"},
      {std::string(20, '\x0c'), "Test With Truncation",
       "4c1a03424b55e07fe7f27be1d58bb9324a9a5a04"},
      {std::string(80, '\xaa'),
       "Test Using Larger Than Block-Size Key - Hash Key First",
       "aa4ae5e15272d00e95705637ce8a3b55ed402112"},
      {std::string(80, '\xaa'),
       "Test Using Larger Than Block-Size Key and Larger Than One "
       "Block-Size Data",
       "e8e99d0f45237d786d6bbaa7965c7808bbff1a91"}};
  for (const auto &c : cases)
    EXPECT_EQ(hmac_hex(c.key, c.data), c.hex) << c.data;
}

TEST(HmacSha, KeysAroundTheBlockSizeMatchOpenSsl) {
  std::mt19937 rng(3);
  for (size_t key_size : {0, 1, 63, 64, 65, 1000}) {
    for (size_t data_size : {0, 55, 64, 200}) {
      const std::string key = random_bytes(rng, key_size);
      const std::string data = random_bytes(rng, data_size);
      EXPECT_EQ(hmac_hex(key, data), to_hex(oracle_hmac(key, data).data(), 20))
          << key_size << "-byte key, " << data_size << " bytes";
    }
  }
}

/* Bytes past the ones asked for stay as they were; a negative data length
 * gives zeros rather than a read. */
TEST(HmacSha, WritesOnlyTheBytesAskedFor) {
  const std::string full = hmac_hex("Jefe", "what do ya want for nothing?");
  for (int wanted : {25, 20, 12, 0, -1}) {
    char out[32];
    memset(out, '#', sizeof out);
    hmac_sha("Jefe", 4, "what do ya want for nothing?", 28, out, wanted);
    const size_t written = size_t(std::max(0, std::min(wanted, 20)));
    EXPECT_EQ(to_hex(out, written) + std::string(out + written, 32 - written),
              full.substr(0, 2 * written) + std::string(32 - written, '#'))
        << wanted;
  }
  char out[21] = "####################";
  hmac_sha("key", 3, "x", -5, out, 20);
  EXPECT_EQ(std::string(out, 20), std::string(20, '\0'));
}

TEST(Truncate, CopiesFrontToBackAndNothingForNonPositiveCounts) {
  char source[] = "abcdef";
  char destination[] = "......";
  truncate(source, destination, 4);
  truncate(source, destination, 0);
  truncate(source, destination, -3);
  EXPECT_STREQ(destination, "abcd..");
  /* Overlapping, destination one byte ahead: a forward copy smears. */
  char overlap[] = "xyz...";
  truncate(overlap, overlap + 1, 4);
  EXPECT_STREQ(overlap, "xxxxx.");
}

/* toHexString, sha1_dump and pr_sha render every byte value as two
 * lowercase digits; the stream writers return the status of their last
 * write. */
TEST(HexRendering, EveryByteValueInLowercase) {
  const std::pair<int, const char *> digests[] = {
      {0, "000102030405060708090a0b0c0d0e0f10111213"},
      {0xEC, "ecedeeeff0f1f2f3f4f5f6f7f8f9fafbfcfdfeff"}};
  FILE *read_only = fopen("/dev/null", "r");
  ASSERT_NE(read_only, nullptr);
  for (const auto &[start, hex] : digests) {
    uint8_t digest[20];
    for (int i = 0; i < 20; ++i)
      digest[i] = uint8_t(start + i);
    char text[42];
    memset(text, '#', sizeof text);
    toHexString(reinterpret_cast<char *>(digest), text);
    EXPECT_EQ(std::string(text, 42), std::string(hex) + '\0' + '#');
    int status = 0;
    EXPECT_EQ(capture_stdout([&] { status = sha1_dump(stdout, digest); }),
              std::string(hex) + "\n");
    EXPECT_EQ(status, '\n');
    EXPECT_EQ(sha1_dump(read_only, digest), EOF);
  }

  char bytes[] = {'\x9c', '\x00', '\xff', '\x0a'};
  for (const auto &[count, text] :
       {std::pair{4, "0x9c00ff0a0"}, {1, "0x9c0"}, {0, "0x0"}, {-2, "0x0"}}) {
    int status = 0, n = count; // a lambda may not capture a binding
    EXPECT_EQ(capture_stdout([&] { status = pr_sha(stdout, bytes, n); }), text);
    EXPECT_EQ(status, '0');
  }
  EXPECT_EQ(pr_sha(read_only, bytes, 4), EOF);
  fclose(read_only);
}

} // namespace
