#include <gtest/gtest.h>
#include <openssl/sha.h>

#include <algorithm>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "../../digest/sha1_internal.h"
#include "test_bytes.h"
#include "velmora/digest.h"

namespace {

std::string hash_hex(const std::string &message) {
  uint8_t *digest = sha1_hash(message.data(), message.size());
  if (!digest)
    return "<null>";
  std::string hex = to_hex(digest, 20);
  free(digest);
  return hex;
}

std::string openssl_hex(const std::string &message) {
  unsigned char digest[SHA_DIGEST_LENGTH];
  SHA1(reinterpret_cast<const unsigned char *>(message.data()), message.size(),
       digest);
  return to_hex(digest, sizeof digest);
}

/* Feeds `message` in pieces that end at the given offsets. */
std::string pieces_hex(const std::string &message,
                       const std::vector<size_t> &cuts) {
  sha1_context_s *context = sha1_open();
  size_t from = 0;
  for (size_t cut : cuts) {
    context = sha1_add(context, message.data() + from, cut - from);
    from = cut;
  }
  context = sha1_add(context, message.data() + from, message.size() - from);
  uint8_t *digest = sha1_close(context);
  std::string hex = to_hex(digest, 20);
  free(digest);
  return hex;
}

/* Runs every test body on the portable path and on the best path. */
class Sha1Paths : public testing::TestWithParam<bool> {
protected:
  void SetUp() override {
    sha1_force_portable(GetParam());
  }
  void TearDown() override {
    sha1_force_portable(false);
  }
};

INSTANTIATE_TEST_SUITE_P(Digest, Sha1Paths, testing::Values(true, false),
                         [](const testing::TestParamInfo<bool> &info) {
                           return info.param ? "portable" : "best";
                         });

TEST_P(Sha1Paths, KnownVectors) {
  const struct {
    std::string message;
    const char *hex;
  } cases[] = {
      {"", "da39a3ee5e6b4b0d3255bfef95601890afd80709"},
      {"abc", "a9993e364706816aba3e25717850c26c9cd0d89d"},
      {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
       "84983e441c3bd26ebaae4aa1f95129e5e54670f1"},
      {std::string(1000000, 'a'), "34aa973cd4c4daa4f61eeb2bdbad27316534016f"},
  };
  for (const auto &c : cases)
    EXPECT_EQ(hash_hex(c.message), c.hex) << c.message.size() << " bytes";
}

TEST_P(Sha1Paths, PaddingBoundariesMatchOpenSsl) {
  std::mt19937 rng(55);
  for (size_t size : {1, 55, 56, 57, 63, 64, 65, 119, 120, 127, 128}) {
    std::string message = random_bytes(rng, size);
    EXPECT_EQ(hash_hex(message), openssl_hex(message)) << size << " bytes";
  }
}

TEST_P(Sha1Paths, PiecesGiveTheSameDigest) {
  std::mt19937 rng(7);
  const std::string message = random_bytes(rng, 300);
  const std::string whole = openssl_hex(message);
  const std::vector<std::vector<size_t>> splits = {
      {},
      {0, 0, 0},
      {1, 1, 2, 3, 63, 63, 64, 128, 128},
      {55, 56, 120},
      {64, 128, 192, 256},
      {10, 200, 299, 300, 300},
  };
  for (const auto &cuts : splits)
    EXPECT_EQ(pieces_hex(message, cuts), whole) << testing::PrintToString(cuts);
}

/* A few thousand random messages, each fed in random pieces (empty ones
 * included), against the independent implementation. */
TEST_P(Sha1Paths, RandomPiecesMatchOpenSsl) {
  std::mt19937 rng(GetParam() ? 1 : 2);
  for (int round = 0; round < 2500; ++round) {
    const size_t size = rng() % (round % 10 == 0 ? 4096 : 300);
    const std::string message = random_bytes(rng, size);
    std::vector<size_t> cuts(rng() % 6);
    for (size_t &cut : cuts)
      cut = size ? rng() % (size + 1) : 0;
    std::sort(cuts.begin(), cuts.end());
    ASSERT_EQ(pieces_hex(message, cuts), openssl_hex(message))
        << size << " bytes cut at " << testing::PrintToString(cuts);
  }
}

TEST(Sha1Compress, ShaExtensionsMatchPortableBlockForBlock) {
  if (!sha1_cpu_has_shani())
    GTEST_SKIP() << "CPU has no SHA extensions";
  std::mt19937 rng(11);
  for (int round = 0; round < 200; ++round) {
    const size_t blocks = 1 + rng() % 8;
    const std::string data = random_bytes(rng, 64 * blocks);
    uint32_t portable[5], extensions[5];
    for (int i = 0; i < 5; ++i)
      portable[i] = extensions[i] = rng();
    sha1_compress_portable(
        portable, reinterpret_cast<const uint8_t *>(data.data()), blocks);
    sha1_compress_shani(extensions,
                        reinterpret_cast<const uint8_t *>(data.data()), blocks);
    ASSERT_EQ(to_hex(portable, 20), to_hex(extensions, 20)) << round;
  }
}

TEST(Sha1Add, ZeroLengthReturnsTheContextWithoutReading) {
  sha1_context_s *context = sha1_open();
  ASSERT_NE(context, nullptr);
  EXPECT_EQ(sha1_add(context, nullptr, 0), context);
  EXPECT_EQ(context->length_low, 0u);
  EXPECT_EQ(context->block_index, 0);
  free(sha1_close(context));

  uint8_t *digest = sha1_hash(nullptr, 0);
  EXPECT_EQ(to_hex(digest, 20), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
  free(digest);
}

TEST(Sha1Add, CountsBitsAcrossTheLowWord) {
  sha1_context_s *context = sha1_open();
  ASSERT_NE(context, nullptr);
  context->length_low = 0xFFFFFFF0;
  const char bytes[3] = {1, 2, 3};
  ASSERT_EQ(sha1_add(context, bytes, 3), context);
  EXPECT_EQ(context->length_low, 8u);
  EXPECT_EQ(context->length_high, 1u);
  EXPECT_EQ(context->block_index, 3);
  free(sha1_close(context));
}

/* Contexts whose count is set by hand to 2^64 bits minus `bytes_left` + 1
 * bytes: exactly `bytes_left` more bytes fit. */
sha1_context_s *near_limit(uint32_t bytes_left) {
  sha1_context_s *context = sha1_open();
  const uint64_t bits = ~uint64_t(0) - 7 - 8 * uint64_t(bytes_left);
  context->length_low = uint32_t(bits);
  context->length_high = uint32_t(bits >> 32);
  return context;
}

TEST(Sha1Add, TheByteThatReachesTwoToTheSixtyFourBitsFails) {
  const char bytes[130] = {};
  sha1_context_s *context = near_limit(100);
  ASSERT_EQ(sha1_add(context, bytes, 99), context);
  ASSERT_EQ(sha1_add(context, bytes, 0), context);
  ASSERT_EQ(sha1_add(context, bytes, 1), context);
  EXPECT_EQ(context->length_high, 0xFFFFFFFFu);
  EXPECT_EQ(context->length_low, 0xFFFFFFF8u);
  EXPECT_EQ(sha1_add(context, bytes, 1), nullptr); // released (ASan: no leak)

  EXPECT_EQ(sha1_add(near_limit(100), bytes, 101), nullptr);
  EXPECT_EQ(sha1_add(near_limit(0), bytes, 1), nullptr);
  /* Refused before a single byte is read. */
  EXPECT_EQ(sha1_add(near_limit(5), bytes, ~uint64_t(0)), nullptr);
  EXPECT_EQ(sha1_add(sha1_open(), bytes, uint64_t(1) << 61), nullptr);
}

TEST(Sha1Dump, WritesFortyLowercaseDigitsAndNewline) {
  uint8_t digest[20];
  for (int i = 0; i < 20; ++i)
    digest[i] = uint8_t(0x9c + 3 * i);
  int status = 0;
  const std::string text = written_to_stream(
      [&](FILE *stream) { return sha1_dump(stream, digest); }, &status);
  EXPECT_EQ(text, to_hex(digest, 20) + "\n");
  EXPECT_EQ(text.substr(0, 2), "9c");
  EXPECT_EQ(status, '\n');

  FILE *read_only = fopen("/dev/null", "r");
  ASSERT_NE(read_only, nullptr);
  EXPECT_EQ(sha1_dump(read_only, digest), EOF);
  fclose(read_only);
}

} // namespace
