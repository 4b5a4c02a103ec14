/* Base64 on AVX2, 24 bytes to 32 characters per round and back. Each
 * 128-bit lane holds four groups. Characters are classified and mapped by
 * their high and low nibbles through in-register tables, so the alphabet
 * shows up here as ranges: A-Z, a-z, 0-9, "+" and "/". */
#include "digest_internal.h"

#if defined(__x86_64__) || defined(__i386__)

#include <immintrin.h>

namespace {

/* The same 16-entry table in both lanes, for byte shuffles. */
__attribute__((target("avx2"))) __m256i both_lanes(__m128i table) {
  return _mm256_broadcastsi128_si256(table);
}

/* Each lane's first 12 bytes as four groups of 6-bit values, one a byte,
 * in text order. */
__attribute__((target("avx2"))) __m256i sextets(__m256i lanes) {
  /* Group bytes b0 b1 b2 as b1 b0 b2 b1: every value then lies within one
   * 16-bit half, where a multiply shifts it into place. */
  const __m256i spread = _mm256_shuffle_epi8(
      lanes,
      _mm256_setr_epi8(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10, 1, 0,
                       2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10));
  const __m256i first_third = _mm256_mulhi_epu16(
      _mm256_and_si256(spread, _mm256_set1_epi32(0x0FC0FC00)),
      _mm256_set1_epi32(0x04000040));
  const __m256i second_fourth = _mm256_mullo_epi16(
      _mm256_and_si256(spread, _mm256_set1_epi32(0x003F03F0)),
      _mm256_set1_epi32(0x01000010));
  return _mm256_or_si256(first_third, second_fourth);
}

/* 6-bit values to characters: each range of the alphabet is the value
 * plus one offset, picked by a small index (13 for 0-25, 0 for 26-51, 1-10
 * for the digits, 11 for "+", 12 for "/"). */
__attribute__((target("avx2"))) __m256i characters(__m256i values) {
  const __m256i range = _mm256_or_si256(
      _mm256_subs_epu8(values, _mm256_set1_epi8(51)),
      _mm256_and_si256(_mm256_cmpgt_epi8(_mm256_set1_epi8(26), values),
                       _mm256_set1_epi8(13)));
  const __m128i offsets = _mm_setr_epi8(
      'a' - 26, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52,
      '0' - 52, '0' - 52, '0' - 52, '0' - 52, '+' - 62, '/' - 63, 'A', 0, 0);
  return _mm256_add_epi8(values,
                         _mm256_shuffle_epi8(both_lanes(offsets), range));
}

/* Nonzero bytes where the character is outside the alphabet. The high
 * nibble picks one class bit (all of them for 0x00-0x1F and 0x80-0xFF);
 * the low-nibble entry holds the classes in which that nibble is invalid. */
__attribute__((target("avx2"))) __m256i invalid(__m256i chars,
                                                __m256i high_nibbles) {
  const __m256i by_low =
      both_lanes(_mm_setr_epi8(0x15, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11,
                               0x11, 0x11, 0x13, 0x1A, 0x1B, 0x1B, 0x1B, 0x1A));
  const __m256i by_high =
      both_lanes(_mm_setr_epi8(0x10, 0x10, 0x01, 0x02, 0x04, 0x08, 0x04, 0x08,
                               0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10));
  const __m256i low_nibbles = _mm256_and_si256(chars, _mm256_set1_epi8(0x0F));
  return _mm256_and_si256(_mm256_shuffle_epi8(by_low, low_nibbles),
                          _mm256_shuffle_epi8(by_high, high_nibbles));
}

/* Valid characters to their 6-bit values: one offset per high nibble, "/"
 * moved to a slot of its own. */
__attribute__((target("avx2"))) __m256i values(__m256i chars,
                                               __m256i high_nibbles) {
  const __m256i offsets =
      both_lanes(_mm_setr_epi8(0, 63 - '/', 62 - '+', 52 - '0', -'A', -'A',
                               26 - 'a', 26 - 'a', 0, 0, 0, 0, 0, 0, 0, 0));
  const __m256i slash = _mm256_cmpeq_epi8(chars, _mm256_set1_epi8('/'));
  return _mm256_add_epi8(
      chars,
      _mm256_shuffle_epi8(offsets, _mm256_add_epi8(high_nibbles, slash)));
}

/* Eight groups of four 6-bit values to their 24 bytes, at the front. */
__attribute__((target("avx2"))) __m256i pack(__m256i values) {
  const __m256i pairs =
      _mm256_maddubs_epi16(values, _mm256_set1_epi32(0x01400140));
  const __m256i groups =
      _mm256_madd_epi16(pairs, _mm256_set1_epi32(0x00011000));
  const __m256i lanes = _mm256_shuffle_epi8(
      groups,
      _mm256_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1,
                       2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1));
  return _mm256_permutevar8x32_epi32(lanes,
                                     _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7));
}

} // namespace

namespace velmora {

__attribute__((target("avx2"))) size_t
base64_encode_avx2(const uint8_t *bytes, size_t length, char *text) {
  size_t i = 0;
  for (; i + 28 <= length; i += 24, text += 32) {
    const __m256i lanes =
        _mm256_loadu2_m128i(reinterpret_cast<const __m128i *>(bytes + i + 12),
                            reinterpret_cast<const __m128i *>(bytes + i));
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(text),
                        characters(sextets(lanes)));
  }
  return i;
}

__attribute__((target("avx2"))) size_t
base64_decode_avx2(const uint8_t *text, size_t size, uint8_t *bytes) {
  size_t i = 0;
  for (; i + 32 <= size; i += 32, bytes += 24) {
    const __m256i chars =
        _mm256_loadu_si256(reinterpret_cast<const __m256i *>(text + i));
    const __m256i high_nibbles =
        _mm256_and_si256(_mm256_srli_epi32(chars, 4), _mm256_set1_epi8(0x0F));
    const uint32_t bad = ~uint32_t(_mm256_movemask_epi8(_mm256_cmpeq_epi8(
        invalid(chars, high_nibbles), _mm256_setzero_si256())));
    /* Stored even when some group is invalid: the groups before it count,
     * and the scalar code overwrites the rest. */
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(bytes),
                        pack(values(chars, high_nibbles)));
    if (bad != 0)
      return i + (unsigned(__builtin_ctz(bad)) & ~3U);
  }
  return i;
}

} // namespace velmora

#else

namespace velmora {

/* Never chosen: base64_cpu_has() is false off x86. */
size_t base64_encode_avx2(const uint8_t *, size_t, char *) {
  return 0;
}
size_t base64_decode_avx2(const uint8_t *, size_t, uint8_t *) {
  return 0;
}

} // namespace velmora

#endif
