/* Base64 on AVX-512 with byte permutes (VBMI), 48 bytes to 64 characters
 * per round and back. The alphabet fits one register, so encoding maps
 * values to characters in one permute, and the 128 ASCII codes fit two, so
 * decoding maps characters to values, or to a mark for invalid ones, in
 * one two-register permute. */
#include "digest_internal.h"

#if defined(__x86_64__) || defined(__i386__)

#include <immintrin.h>

namespace {

constexpr char kAlphabet[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr int8_t kInvalid = -128;

struct Tables {
  alignas(64) char alphabet[64] = {};
  /* Value of each ASCII code, kInvalid outside the alphabet. */
  alignas(64) int8_t value[128] = {};
  /* Where each character's group bytes come from: b1 b0 b2 b1. */
  alignas(64) uint8_t spread[64] = {};
  /* Where each decoded byte comes from in its group's packed 24 bits. */
  alignas(64) uint8_t gather[64] = {};

  constexpr Tables() {
    constexpr uint8_t kOrder[4] = {1, 0, 2, 1};
    for (int c = 0; c < 128; ++c)
      value[c] = kInvalid;
    for (int s = 0; s < 64; ++s) {
      alphabet[s] = kAlphabet[s];
      value[static_cast<unsigned char>(kAlphabet[s])] = int8_t(s);
      spread[s] = uint8_t(s / 4 * 3 + kOrder[s % 4]);
    }
    for (int b = 0; b < 48; ++b)
      gather[b] = uint8_t(b / 3 * 4 + 2 - b % 3);
  }
};

constexpr Tables kTables;

__attribute__((target("avx512bw,avx512vbmi"))) __m512i load(const void *p) {
  return _mm512_loadu_si512(p);
}

/* The zero-masking forms with every lane kept: GCC 12 warns that the plain
 * forms read an uninitialised register. */
constexpr __mmask64 kEveryLane = ~__mmask64(0);

__attribute__((target("avx512bw,avx512vbmi"))) __m512i permute(__m512i index,
                                                               __m512i table) {
  return _mm512_maskz_permutexvar_epi8(kEveryLane, index, table);
}

__attribute__((target("avx512bw,avx512vbmi"))) __m512i
multishift(__m512i offsets, __m512i words) {
  return _mm512_maskz_multishift_epi64_epi8(kEveryLane, offsets, words);
}

} // namespace

namespace velmora {

__attribute__((target("avx512bw,avx512vbmi"))) size_t
base64_encode_avx512(const uint8_t *bytes, size_t length, char *text) {
  const __m512i alphabet = load(kTables.alphabet);
  const __m512i spread = load(kTables.spread);
  /* Per 64-bit half of b1 b0 b2 b1 b1 b0 b2 b1, the bit offsets of the
   * eight 6-bit values in text order (the permute ignores the top two). */
  const __m512i offsets = _mm512_set1_epi64(0x3036242A1016040A);
  size_t i = 0;
  for (; i + 64 <= length; i += 48, text += 64) {
    const __m512i groups = permute(spread, load(bytes + i));
    const __m512i values = multishift(offsets, groups);
    _mm512_storeu_si512(text, permute(values, alphabet));
  }
  return i;
}

__attribute__((target("avx512bw,avx512vbmi"))) size_t
base64_decode_avx512(const uint8_t *text, size_t size, uint8_t *bytes) {
  const __m512i low_codes = load(kTables.value);
  const __m512i high_codes = load(kTables.value + 64);
  const __m512i gather = load(kTables.gather);
  size_t i = 0;
  for (; i + 64 <= size; i += 64, bytes += 48) {
    const __m512i chars = load(text + i);
    const __m512i values =
        _mm512_permutex2var_epi8(low_codes, chars, high_codes);
    /* The permute reads 7 bits: a high byte shows by its own top bit. */
    const uint64_t bad = _mm512_movepi8_mask(_mm512_or_si512(chars, values));
    const __m512i pairs =
        _mm512_maddubs_epi16(values, _mm512_set1_epi32(0x01400140));
    const __m512i groups =
        _mm512_madd_epi16(pairs, _mm512_set1_epi32(0x00011000));
    /* Stored even when some group is invalid: the groups before it count,
     * and the scalar code overwrites the rest. */
    _mm512_storeu_si512(bytes, permute(gather, groups));
    if (bad != 0)
      return i + (size_t(__builtin_ctzll(bad)) & ~size_t(3));
  }
  return i;
}

} // namespace velmora

#else

namespace velmora {

/* Never chosen: base64_cpu_has() is false off x86. */
size_t base64_encode_avx512(const uint8_t *, size_t, char *) {
  return 0;
}
size_t base64_decode_avx512(const uint8_t *, size_t, uint8_t *) {
  return 0;
}

} // namespace velmora

#endif
