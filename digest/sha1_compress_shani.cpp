/* SHA-1 block compression on the x86 SHA extensions. Each group of four
 * steps is one sha1rnds4; the schedule for group i + 1 to i + 3 is built
 * while group i runs, in a ring of four message registers. */
#include "digest_internal.h"

#if defined(__x86_64__) || defined(__i386__)

#include <immintrin.h>

#include <utility>

namespace {

/* Group `I` (steps 4I to 4I + 3). The register that carries E into this
 * group is e[I % 2]; the other receives ABCD for the next group. */
template <int I>
__attribute__((target("sha,sse4.1,ssse3"), always_inline)) inline void
group(__m128i &abcd, __m128i e[2], __m128i msg[4]) {
  __m128i &carry = e[I % 2];
  if constexpr (I == 0)
    carry = _mm_add_epi32(carry, msg[0]);
  else
    carry = _mm_sha1nexte_epu32(carry, msg[I % 4]);
  e[(I + 1) % 2] = abcd;
  if constexpr (I >= 3 && I <= 18)
    msg[(I + 1) % 4] = _mm_sha1msg2_epu32(msg[(I + 1) % 4], msg[I % 4]);
  abcd = _mm_sha1rnds4_epu32(abcd, carry, I / 5);
  if constexpr (I >= 1 && I <= 16)
    msg[(I + 3) % 4] = _mm_sha1msg1_epu32(msg[(I + 3) % 4], msg[I % 4]);
  if constexpr (I >= 2 && I <= 17)
    msg[(I + 2) % 4] = _mm_xor_si128(msg[(I + 2) % 4], msg[I % 4]);
}

template <size_t... I>
__attribute__((target("sha,sse4.1,ssse3"), always_inline)) inline void
all_groups(__m128i &abcd, __m128i e[2], __m128i msg[4],
           std::index_sequence<I...>) {
  (group<I>(abcd, e, msg), ...);
}

} // namespace

namespace velmora {

__attribute__((target("sha,sse4.1,ssse3"))) void
sha1_compress_shani(uint32_t state[5], const uint8_t *blocks, size_t count) {
  const __m128i byte_swap =
      _mm_set_epi64x(0x0001020304050607LL, 0x08090a0b0c0d0e0fLL);
  __m128i abcd = _mm_shuffle_epi32(
      _mm_loadu_si128(reinterpret_cast<const __m128i *>(state)), 0x1B);
  __m128i e0 = _mm_set_epi32(static_cast<int>(state[4]), 0, 0, 0);

  for (; count > 0; --count, blocks += 64) {
    const __m128i abcd_saved = abcd;
    const __m128i e_saved = e0;
    __m128i msg[4];
    for (int i = 0; i < 4; ++i)
      msg[i] = _mm_shuffle_epi8(
          _mm_loadu_si128(reinterpret_cast<const __m128i *>(blocks) + i),
          byte_swap);
    __m128i e[2] = {e0, _mm_setzero_si128()};
    all_groups(abcd, e, msg, std::make_index_sequence<20>());
    /* Group 19 left the ABCD that feeds E in e[0]. */
    e0 = _mm_sha1nexte_epu32(e[0], e_saved);
    abcd = _mm_add_epi32(abcd, abcd_saved);
  }

  _mm_storeu_si128(reinterpret_cast<__m128i *>(state),
                   _mm_shuffle_epi32(abcd, 0x1B));
  state[4] = static_cast<uint32_t>(_mm_extract_epi32(e0, 3));
}

} // namespace velmora

#else

namespace velmora {

/* Never chosen: cpu_features().sha is false off x86. */
void sha1_compress_shani(uint32_t state[5], const uint8_t *blocks,
                         size_t count) {
  sha1_compress_portable(state, blocks, count);
}

} // namespace velmora

#endif
