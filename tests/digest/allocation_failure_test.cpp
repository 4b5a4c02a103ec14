/* Allocation failures, made on demand through the wrapped malloc. */
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "failing_malloc.h"
#include "velmora/digest.h"

namespace {

/* Each failure in turn: null, and nothing leaked (the leak checker sees). */
TEST(AllocationFailure, Sha1FunctionsReturnNull) {
  EXPECT_EQ(with_failing_malloc(1, [] { EXPECT_EQ(sha1_open(), nullptr); }), 1);
  with_failing_malloc(2, [] {
    sha1_context_s *context = sha1_open();
    ASSERT_NE(context, nullptr);
    EXPECT_EQ(sha1_close(sha1_add(context, "abc", 3)), nullptr);
  });
  /* sha1_hash opens a context and closes it into the digest. */
  EXPECT_EQ(with_failing_malloc(0, [] { free(sha1_hash("abc", 3)); }), 2);
  for (int n = 1; n <= 2; ++n)
    with_failing_malloc(n, [] { EXPECT_EQ(sha1_hash("abc", 3), nullptr); });
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
