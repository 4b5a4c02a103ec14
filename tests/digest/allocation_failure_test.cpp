/* Allocation failures, made on demand: the test program is linked with
 * --wrap=malloc, so every malloc call in it (the library's included) comes
 * here first. */
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "velmora/digest.h"

namespace {

/* Counts down malloc calls; the one that brings it to zero fails. */
int mallocs_until_failure = 0;
int mallocs_seen = 0;

} // namespace

extern "C" void *__real_malloc(size_t size);

extern "C" void *__wrap_malloc(size_t size) {
  ++mallocs_seen;
  if (mallocs_until_failure > 0 && --mallocs_until_failure == 0)
    return nullptr;
  return __real_malloc(size);
}

namespace {

/* Runs `body` with the `n`th malloc failing (0: none); returns how many
 * mallocs it made. */
template <typename Body> int with_failing_malloc(int n, Body body) {
  mallocs_seen = 0;
  mallocs_until_failure = n;
  body();
  mallocs_until_failure = 0;
  return mallocs_seen;
}

/* Each failure in turn: null, and nothing leaked (the leak checker sees). */
TEST(AllocationFailure, Sha1FunctionsReturnNull) {
  EXPECT_EQ(with_failing_malloc(1, [] { EXPECT_EQ(sha1_open(), nullptr); }), 1);
  with_failing_malloc(2, [] {
    sha1_context_s *context = sha1_open();
    ASSERT_NE(context, nullptr);
    EXPECT_EQ(sha1_close(sha1_add(context, "abc", 3)), nullptr);
  });
  EXPECT_EQ(
      with_failing_malloc(1, [] { EXPECT_EQ(sha1_hash("abc", 3), nullptr); }),
      1);
}

/* Every allocation inside hmac_sha, for short and hashed keys alike, fails
 * in turn: the output is zeros, nothing is leaked or read through null. */
TEST(AllocationFailure, HmacShaWritesZeros) {
  for (const std::string &key : {std::string("Jefe"), std::string(80, 'k')}) {
    char out[22];
    const int calls = with_failing_malloc(
        0, [&] { hmac_sha(key.data(), int(key.size()), "data", 4, out, 20); });
    ASSERT_GE(calls, 4) << key.size();
    for (int n = 1; n <= calls; ++n) {
      memset(out, '#', sizeof out);
      with_failing_malloc(n, [&] {
        hmac_sha(key.data(), int(key.size()), "data", 4, out, 22);
      });
      EXPECT_EQ(std::string(out, 22), std::string(20, '\0') + "##")
          << key.size() << "-byte key, malloc " << n;
    }
  }
}

TEST(AllocationFailure, Base64DecodeStoresNullAndZeroLength) {
  char *out = reinterpret_cast<char *>(1);
  int length = -1;
  with_failing_malloc(1, [&] { base64_decode("Zm9vYmFy", &out, length); });
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(length, 0);
}

} // namespace
