/* Portable SHA-1 block compression: five rotating registers and a 16-word
 * circular message schedule, unrolled so the rotation costs no moves. */
#include "digest_internal.h"

namespace {

constexpr uint32_t kStageConstant[4] = {0x5A827999, 0x6ED9EBA1, 0x8F1BBCDC,
                                        0xCA62C1D6};

inline uint32_t rotl(uint32_t x, int n) {
  return (x << n) | (x >> (32 - n));
}

inline uint32_t load_be32(const uint8_t *p) {
  return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 |
         uint32_t(p[3]);
}

template <int Stage> inline uint32_t mix(uint32_t b, uint32_t c, uint32_t d) {
  if constexpr (Stage == 0)
    return d ^ (b & (c ^ d));
  else if constexpr (Stage == 2)
    return (b & c) + (d & (b ^ c));
  else
    return b ^ c ^ d;
}

/* Word `i` of the schedule; past the first sixteen it is expanded in place. */
inline uint32_t schedule(uint32_t w[16], int i) {
  if (i < 16)
    return w[i];
  uint32_t x =
      rotl(w[(i + 13) & 15] ^ w[(i + 8) & 15] ^ w[(i + 2) & 15] ^ w[i & 15], 1);
  w[i & 15] = x;
  return x;
}

template <int Stage>
inline void step(uint32_t a, uint32_t &b, uint32_t c, uint32_t d, uint32_t &e,
                 uint32_t w[16], int i) {
  e +=
      rotl(a, 5) + mix<Stage>(b, c, d) + kStageConstant[Stage] + schedule(w, i);
  b = rotl(b, 30);
}

/* Five steps bring the registers back to their starting roles. */
template <int Stage>
inline void five_steps(uint32_t &a, uint32_t &b, uint32_t &c, uint32_t &d,
                       uint32_t &e, uint32_t w[16], int i) {
  step<Stage>(a, b, c, d, e, w, i);
  step<Stage>(e, a, b, c, d, w, i + 1);
  step<Stage>(d, e, a, b, c, w, i + 2);
  step<Stage>(c, d, e, a, b, w, i + 3);
  step<Stage>(b, c, d, e, a, w, i + 4);
}

template <int Stage>
inline void stage(uint32_t &a, uint32_t &b, uint32_t &c, uint32_t &d,
                  uint32_t &e, uint32_t w[16]) {
#pragma GCC unroll 4
  for (int i = Stage * 20; i < Stage * 20 + 20; i += 5)
    five_steps<Stage>(a, b, c, d, e, w, i);
}

} // namespace

namespace velmora {

void sha1_compress_portable(uint32_t state[5], const uint8_t *blocks,
                            size_t count) {
  for (; count > 0; --count, blocks += 64) {
    uint32_t w[16];
    for (size_t i = 0; i < 16; ++i)
      w[i] = load_be32(blocks + 4 * i);
    uint32_t a = state[0], b = state[1], c = state[2], d = state[3],
             e = state[4];
    stage<0>(a, b, c, d, e, w);
    stage<1>(a, b, c, d, e, w);
    stage<2>(a, b, c, d, e, w);
    stage<3>(a, b, c, d, e, w);
    state[0] += a;
    state[1] += b;
    state[2] += c;
    state[3] += d;
    state[4] += e;
  }
}

} // namespace velmora
