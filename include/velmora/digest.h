/** @file
 * SHA-1, HMAC-SHA1, hex rendering and Base64.
 *
 * Byte strings are a pointer and a length; nothing here needs a terminator.
 * A digest is 20 raw bytes; its hex rendering is 40 lowercase digits and a
 * NUL (41 bytes). Every buffer these functions allocate comes from malloc
 * and is released by the caller with free.
 */
#ifndef VELMORA_DIGEST_H
#define VELMORA_DIGEST_H

#include <cstdint>
#include <cstdio>
#include <string>

#include "velmora/export.h"

/** Running state of one SHA-1 message. Callers hold only the pointer. */
struct sha1_context_s {
  uint32_t intermediate_hash[5]; /**< the chaining value */
  uint32_t length_low;           /**< message length in bits, low word */
  uint32_t length_high;          /**< and high word */
  int16_t block_index;           /**< bytes waiting in message_block */
  uint8_t message_block[64];     /**< the block being filled */
};

/** New context, or null when it cannot be allocated. */
extern "C" VELMORA_EXPORT sha1_context_s *sha1_open(void);

/**
 * Feeds `length` bytes at `data` (not read when `length` is 0). Returns
 * `context`, or null when the message passes 2^64 bits; the context is then
 * already released and must not be used again.
 */
extern "C" VELMORA_EXPORT sha1_context_s *
sha1_add(sha1_context_s *context, const void *data, uint64_t length);

/**
 * Finishes the message and releases the context. Returns a new 20-byte
 * digest that the caller frees, or null when it cannot be allocated.
 */
extern "C" VELMORA_EXPORT uint8_t *sha1_close(sha1_context_s *context);

/** One-shot digest of `length` bytes: sha1_open, sha1_add of the whole input,
 * sha1_close. Returns a new 20-byte buffer the caller frees, or null when
 * any step fails; the context is released on every path. */
extern "C" VELMORA_EXPORT uint8_t *sha1_hash(const void *data, uint64_t length);

/**
 * Writes the 20-byte digest as 40 lowercase hex digits and "\n" to
 * `stream`. Returns the status of the last write (EOF on error).
 */
extern "C" VELMORA_EXPORT int sha1_dump(FILE *stream, const uint8_t *digest);

/**
 * HMAC-SHA1 of `data` under `key`. Writes min(out_length, 20) bytes to
 * `out`, nothing when `out_length` is 0 or less. Lengths must not be
 * negative. Should an internal allocation fail, the bytes asked for are
 * zeros.
 */
VELMORA_EXPORT void hmac_sha(const char *key, int key_length, const char *data,
                             int data_length, char *out, int out_length);

/** Copies the first `count` bytes of `source` into `destination`, front to
 * back; nothing when `count` is 0 or less. Note the argument order. */
VELMORA_EXPORT void truncate(char *source, char *destination, int count);

/**
 * Writes "0x", two lowercase hex digits per byte and a final "0" to
 * `stream`. Returns the status of the last write (EOF on error).
 */
VELMORA_EXPORT int pr_sha(FILE *stream, char *bytes, int count);

/** Renders a 20-byte digest as 40 lowercase hex digits and a NUL in `text`
 * (at least 41 bytes, distinct from `digest`). */
VELMORA_EXPORT void toHexString(const char *digest, char *text);

/** The standard Base64 text (with "=" padding, no line breaks) of the
 * `length` bytes at `bytes`, returned by value; empty for no bytes. */
VELMORA_EXPORT std::string base64_encode(const char *bytes,
                                         unsigned int length);

/**
 * Decodes `text` up to its end, its first "=" or its first character that
 * is neither "+", "/" nor a letter or digit to isalnum (in the "C" locale:
 * its first character outside the alphabet); a two- or three-character
 * remainder gives one or two bytes. Always stores a new buffer of
 * text.size() bytes in `*out` (the caller frees it, even when `length` is
 * 0) and the decoded byte count in `length`. Should the buffer not be
 * allocated, `*out` is null and `length` 0. Texts must be shorter than
 * 2^31 characters; of a longer one only the first INT_MAX are read.
 */
VELMORA_EXPORT void base64_decode(const std::string &text, char **out,
                                  int &length);

#endif
