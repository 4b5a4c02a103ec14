/* SHA-1, HMAC-SHA1, hex and Base64 against OpenSSL, and what each does
 * when an allocation fails. */
#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>
#include <memory>
#include <vector>

#include "../../digest/digest_internal.h"
#include "capture_stdout.h"
#include "failing_malloc.h"
#include "oracles.h"
#include "velmora/digest.h"

namespace {

/* Renders and frees a digest; "<null>" for none. */
std::string hex_of(uint8_t *digest) {
  const std::unique_ptr<uint8_t, void (*)(void *)> guard(digest, free);
  return digest == nullptr ? "<null>" : to_hex(digest, 20);
}

/* A context that takes exactly `bytes_left` more bytes below 2^64 bits. */
sha1_context_s *near_limit(uint64_t bytes_left) {
  sha1_context_s *context = sha1_open();
  const uint64_t bits = ~uint64_t(0) - 7 - 8 * bytes_left;
  context->length_low = uint32_t(bits);
  context->length_high = uint32_t(bits >> 32);
  return context;
}

/* 24 bytes of which hmac_sha was asked to write `out_length`. */
std::string hmac(const std::string &key, const std::string &data,
                 int out_length = 24) {
  std::string out(24, '#');
  hmac_sha(key.data(), int(key.size()), data.data(), int(data.size()), &out[0],
           out_length);
  return out;
}

/* The decoded bytes; the buffer is always freed, as callers must. */
std::string decode(const std::string &text) {
  char *out = nullptr;
  int length = -1;
  base64_decode(text, &out, length);
  const std::unique_ptr<char, void (*)(void *)> guard(out, free);
  return out ? std::string(out, size_t(length))
             : "<null " + std::to_string(length) + ">";
}

/* Every length up to three blocks, then random ones, fed in pieces of
 * random lengths (empty ones too), on the portable compression and on the
 * best one the CPU offers. */
TEST(Sha1, MatchesOpenSslInAnyPiecesOnEveryPath) {
  for (bool portable : {true, false}) {
    velmora::sha1_force_portable(portable);
    std::mt19937 rng(portable);
    for (size_t round = 0; round < 2000; ++round) {
      const std::string message = random_bytes(
          rng, round < 200 ? round : rng() % (round % 9 ? 300 : 5000));
      sha1_context_s *context = sha1_open();
      for (size_t from = 0, piece; from < message.size(); from += piece) {
        piece = std::min(rng() % (1u << rng() % 13), message.size() - from);
        context = sha1_add(context, message.data() + from, piece);
      }
      ASSERT_EQ(hex_of(sha1_close(context)), oracle_sha1_hex(message))
          << message.size() << " bytes, round " << round;
    }
  }
  velmora::sha1_force_portable(false);
  EXPECT_EQ(hex_of(sha1_hash(nullptr, 0)), oracle_sha1_hex(""));
}

/* The byte that would reach 2^64 bits is refused before anything is read, and
 * the context is released. */
TEST(Sha1, CountsBitsExactlyUpToTheLimit) {
  const char bytes[100] = {};
  EXPECT_NE(hex_of(sha1_close(sha1_add(near_limit(100), bytes, 100))),
            "<null>");
  for (uint64_t length : {uint64_t(101), ~uint64_t(0), uint64_t(1) << 61})
    EXPECT_EQ(sha1_add(near_limit(100), bytes, length), nullptr) << length;
}

/* Keys and data around the block size; no byte past the ones asked for
 * is written, and truncate copies front to back. */
TEST(HmacSha, MatchesOpenSslAndWritesOnlyTheBytesAskedFor) {
  for (size_t key : {0, 1, 63, 64, 65, 200})
    for (size_t size : {0, 55, 64, 200})
      EXPECT_EQ(hmac(std::string(key, 'k'), std::string(size, 'd')),
                oracle_hmac(std::string(key, 'k'), std::string(size, 'd')) +
                    "####")
          << key << "-byte key, " << size << " bytes";
  for (auto [wanted, written] : {std::pair{21, 20}, {12, 12}, {0, 0}, {-1, 0}})
    EXPECT_EQ(hmac("k", "data", wanted),
              oracle_hmac("k", "data").substr(0, written) +
                  std::string(24 - written, '#'));
  char text[] = "abcdef..";
  for (int count : {0, -3, 4})
    truncate(text, text + 2, count);
  EXPECT_STREQ(text, "ababab..");
}

/* Every digit in both places of a byte, in lowercase; the stream writers
 * return their last write's status, EOF on a stream not open for writing. */
TEST(HexRendering, EveryDigitInBothPlaces) {
  char digest[] = "\x01\x23\x45\x67\x89\xab\xcd\xef\xfe\xdc\xba\x98\x76\x54\x32"
                  "\x10\x00\xff\x0f\xf0";
  const uint8_t *raw = reinterpret_cast<uint8_t *>(digest);
  const std::string hex = "0123456789abcdeffedcba987654321000ff0ff0";
  std::string text(42, '#');
  toHexString(digest, &text[0]);
  EXPECT_EQ(text, hex + '\0' + '#');
  std::string statuses;
  EXPECT_EQ(capture_stdout([&] {
              statuses += char(sha1_dump(stdout, raw));
              for (int count : {20, 1, -2})
                statuses += char(pr_sha(stdout, digest, count));
            }),
            hex + "\n0x" + hex + "00x0100x0");
  EXPECT_EQ(statuses, "\n000");
  EXPECT_EQ(sha1_dump(stdin, raw) + pr_sha(stdin, digest, 20), 2 * EOF);
}

/* A text of two vector widths and more with every byte value put at every
 * position in turn. */
std::vector<std::string> stray_texts(std::mt19937 &rng) {
  const std::string text = oracle_base64(random_bytes(rng, 100));
  std::vector<std::string> texts;
  for (size_t at = 0; at < text.size(); ++at)
    for (int put = 0; put < 256; ++put) {
      texts.push_back(text);
      texts.back()[at] = char(put);
    }
  return texts;
}

/* Random lengths cover every alignment of the wide loops and their tails,
 * on every path the CPU has. The stray texts decode on each path as on the
 * scalar one, under "C" and under a locale whose isalnum takes high bytes,
 * where a letter outside the alphabet reads on as "A". A last group of two
 * or three characters gives one or two bytes, a lone one none. */
TEST(Base64, EveryPathMatchesOpenSslAndTheScalarPath) {
  using velmora::Base64Path;
  setenv("LOCPATH", LATIN1_LOCALE_PATH, 1);
  std::mt19937 rng(64);
  const std::vector<std::string> strays = stray_texts(rng);
  std::vector<std::string> scalar[2];
  /* Under latin1, isalnum takes 0xE9 ("e" acute). */
  const std::pair<const char *, const char *> locales[] = {
      {"C", "foo"}, {"latin1", "foo\002ar"}};
  for (const auto path :
       {Base64Path::scalar, Base64Path::avx2, Base64Path::avx512}) {
    if (!velmora::base64_force(path))
      continue;
    for (int round = 0; round < 3000; ++round) {
      const std::string bytes =
          random_bytes(rng, round < 300 ? round : rng() % 700);
      const std::string text =
          base64_encode(bytes.data(), unsigned(bytes.size()));
      ASSERT_EQ(text, oracle_base64(bytes)) << int(path) << ", " << round;
      ASSERT_EQ(decode(text), bytes) << int(path) << ", " << round;
    }
    for (size_t l = 0; l < 2; ++l) {
      ASSERT_NE(setlocale(LC_CTYPE, locales[l].first), nullptr);
      EXPECT_EQ(decode("Zm9v\xe9mFy"), locales[l].second) << int(path);
      for (size_t k = 0; k < strays.size(); ++k) {
        if (path == Base64Path::scalar)
          scalar[l].push_back(decode(strays[k]));
        ASSERT_EQ(decode(strays[k]), scalar[l][k])
            << int(path) << ", " << locales[l].first << ", text " << k;
      }
    }
  }
  setlocale(LC_CTYPE, "C");
  velmora::base64_force(Base64Path::best);
  const std::pair<std::string, const char *> prefixes[] = {
      {"Zm9v!mFy", "foo"},
      {std::string("Zm9v\0AAA", 8), "foo"},
      {"Zm9vYmE", "fooba"},
      {"Zm9vY=", "foo"}};
  for (const auto &[text, bytes] : prefixes)
    EXPECT_EQ(decode(text), bytes) << text;
}

/* Each allocation failing in turn: sha1_hash (a context, then the digest)
 * gives null, hmac_sha zeros, base64_decode a null buffer and no length;
 * nothing leaks (the sanitizer build judges). */
TEST(AllocationFailure, EachDigestAllocationInTurn) {
  const std::string zeros = std::string(20, '\0') + "####";
  const std::pair<std::function<std::string()>, std::string> operations[] = {
      {[] { return hex_of(sha1_hash("abc", 3)); }, "<null>"},
      {[] { return hmac(std::string(80, 'k'), "data"); }, zeros},
      {[] { return decode("Zm9vYmFy"); }, "<null 0>"}};
  for (const auto &[operation, failed] : operations) {
    const int calls = with_failing_malloc(0, operation);
    for (int n = 1; n <= calls; ++n)
      with_failing_malloc(n, [&] { EXPECT_EQ(operation(), failed) << n; });
  }
  EXPECT_EQ(with_failing_malloc(0, operations[0].first), 2);
}

} // namespace
