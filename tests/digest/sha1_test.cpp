#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "../../digest/digest_internal.h"
#include "oracles.h"
#include "velmora/digest.h"

namespace {

std::string hash_hex(const void *message, uint64_t length) {
  uint8_t *digest = sha1_hash(message, length);
  std::string hex = digest ? to_hex(digest, 20) : "<null>";
  free(digest);
  return hex;
}

/* Feeds `message` to a context in pieces that end at the given offsets. */
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
    velmora::sha1_force_portable(GetParam());
  }
  void TearDown() override {
    velmora::sha1_force_portable(false);
  }
};

INSTANTIATE_TEST_SUITE_P(Digest, Sha1Paths, testing::Values(true, false),
                         [](const testing::TestParamInfo<bool> &info) {
                           return info.param ? "portable" : "best";
                         });

TEST_P(Sha1Paths, KnownVectorsAndPaddingBoundaries) {
  const std::pair<std::string, const char *> vectors[] = {
      {"", "da39a3ee5e6b4b0d3255bfef95601890afd80709"},
      {"abc", "a9993e364706816aba3e25717850c26c9cd0d89d"},
      {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
       "84983e441c3bd26ebaae4aa1f95129e5e54670f1"},
      {std::string(1000000, 'a'), "34aa973cd4c4daa4f61eeb2bdbad27316534016f"}};
  for (const auto &[message, hex] : vectors)
    EXPECT_EQ(hash_hex(message.data(), message.size()), hex);
  EXPECT_EQ(hash_hex(nullptr, 0), vectors[0].second);

  std::mt19937 rng(55);
  for (size_t size : {55, 56, 63, 64, 119, 120}) {
    const std::string message = random_bytes(rng, size);
    EXPECT_EQ(hash_hex(message.data(), size), oracle_sha1_hex(message)) << size;
  }
}

/* Fixed splits with empty pieces, then a few thousand random messages in
 * random pieces, against the independent implementation. */
TEST_P(Sha1Paths, PiecesMatchOpenSsl) {
  std::mt19937 rng(GetParam() ? 1 : 2);
  const std::string message = random_bytes(rng, 300);
  for (const std::vector<size_t> &cuts : {std::vector<size_t>{0, 0, 0},
                                          {1, 1, 2, 3, 63, 63, 64, 128, 128},
                                          {55, 56, 120},
                                          {10, 200, 299, 300, 300}})
    EXPECT_EQ(pieces_hex(message, cuts), oracle_sha1_hex(message));
  for (int round = 0; round < 2500; ++round) {
    const size_t size = rng() % (round % 10 == 0 ? 4096 : 300);
    const std::string message = random_bytes(rng, size);
    std::vector<size_t> cuts(rng() % 6);
    for (size_t &cut : cuts)
      cut = rng() % (size + 1);
    std::sort(cuts.begin(), cuts.end());
    ASSERT_EQ(pieces_hex(message, cuts), oracle_sha1_hex(message))
        << size << " bytes cut at " << testing::PrintToString(cuts);
  }
}

/* A context whose count is set by hand so that exactly `bytes_left` more
 * bytes fit below 2^64 bits. */
sha1_context_s *near_limit(uint32_t bytes_left) {
  sha1_context_s *context = sha1_open();
  const uint64_t bits = ~uint64_t(0) - 7 - 8 * uint64_t(bytes_left);
  context->length_low = uint32_t(bits);
  context->length_high = uint32_t(bits >> 32);
  return context;
}

/* The count carries into the high word; the byte that would reach 2^64
 * bits is refused before anything is read, and the context is released
 * (the leak checker sees it). */
TEST(Sha1Add, CountsBitsExactlyUpToTheLimit) {
  sha1_context_s *context = sha1_open();
  ASSERT_EQ(sha1_add(context, nullptr, 0), context);
  context->length_low = 0xFFFFFFF0;
  ASSERT_EQ(sha1_add(context, "abc", 3), context);
  EXPECT_EQ(context->length_low, 8u);
  EXPECT_EQ(context->length_high, 1u);
  EXPECT_EQ(context->block_index, 3);
  free(sha1_close(context));

  const char bytes[100] = {};
  context = near_limit(100);
  ASSERT_EQ(sha1_add(context, bytes, 99), context);
  ASSERT_EQ(sha1_add(context, bytes, 1), context);
  EXPECT_EQ(context->length_high, 0xFFFFFFFFu);
  EXPECT_EQ(context->length_low, 0xFFFFFFF8u);
  EXPECT_EQ(sha1_add(context, bytes, 1), nullptr);
  EXPECT_EQ(sha1_add(near_limit(99), bytes, 100), nullptr);
  EXPECT_EQ(sha1_add(near_limit(5), bytes, ~uint64_t(0)), nullptr);
  EXPECT_EQ(sha1_add(sha1_open(), bytes, uint64_t(1) << 61), nullptr);
}

} // namespace
