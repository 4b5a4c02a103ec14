/** @file
 * The connection and credential record, and the one request call.
 *
 * A record is made with client_context_new (or client_context_init on the
 * caller's storage), configured with the setters, handed to send_request,
 * and released with client_context_free (or client_context_clean). The
 * first record initialised in the process performs libcurl's global
 * initialisation, once. Calls on one record must be serialised by the
 * caller; distinct records may be used on distinct threads.
 */
#ifndef VELMORA_TRANSPORT_H
#define VELMORA_TRANSPORT_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "velmora/export.h"

/**
 * Optional texts are null when absent and otherwise strings the record
 * owns. `clock_offset` (seconds added to the local clock when a request is
 * stamped) and `verbose` (libcurl's trace) are read and written directly.
 */
struct client_context_s {
  std::string *user;     /**< account name; null: requests go unsigned */
  std::string *password; /**< the password, kept only to be hashed */
  char *password_sha1;   /**< 40 hex digits and a NUL, from malloc */
  std::string *host;     /**< service host, "127.0.0.1" by default */
  int port;              /**< service port, 8888 by default */
  int64_t clock_offset;  /**< seconds added to the local clock */
  uint8_t verbose;       /**< non-zero: libcurl's trace on stderr */
  std::string *token;    /**< signs with the token scheme when set */
  std::string *auth_key; /**< the LOCAL_AUTH_KEY value sent */
};

/** A new record, initialised as client_context_init does, to release with
 * client_context_free; null when memory runs out. */
extern "C" VELMORA_EXPORT client_context_s *client_context_new(void);
/**
 * Fills a record that owns nothing: host "127.0.0.1", port 8888, no user,
 * password, hash or token, offset 0, verbose off, and the key of
 * "/etc/local_auth.key" ("NO KEY" when it gives none) as auth_key. Performs
 * libcurl's global initialisation first, once per process; a null record
 * gets only that.
 */
extern "C" VELMORA_EXPORT void client_context_init(client_context_s *context);
/** Releases what the record owns and nulls its texts; only init, another
 * clean or freeing may follow. A null record does nothing. */
extern "C" VELMORA_EXPORT void client_context_clean(client_context_s *context);
/** client_context_clean, then the record itself (from client_context_new);
 * a null record does nothing. */
extern "C" VELMORA_EXPORT void client_context_free(client_context_s *context);

/** The setters copy their text argument (the caller keeps its own, which
 * may be the text a getter lent) and return 0, also for a null record,
 * which they leave alone. */

/** Sets the user; an empty or null name leaves the user absent, and
 * requests go unsigned. Returns 0. */
extern "C" VELMORA_EXPORT int client_context_set_user(client_context_s *context,
                                                      const char *user);
/** Sets the password and drops the password hash; an empty or null password
 * leaves it absent. Returns 0. */
extern "C" VELMORA_EXPORT int
client_context_set_password(client_context_s *context, const char *password);
/** Uses a copy of `hex` (40 lowercase hex digits of the password's SHA-1) as
 * the signing key; the password becomes absent. A null `hex`, or running
 * out of memory, leaves no hash. Returns 0. */
extern "C" VELMORA_EXPORT int
client_context_set_password_hash(client_context_s *context, const char *hex);
/** The user name, lent until the user changes; null when no user is set, or
 * for a null record. */
extern "C" VELMORA_EXPORT const char *
client_context_get_user(client_context_s *context);
/** The password hash, lent; null until computed or given, or for a null
 * record. */
extern "C" VELMORA_EXPORT char *
client_context_get_password_sha1(client_context_s *context);
/** Sets the token, which selects the token scheme for signed requests; an
 * empty token is still a token, null removes it. Returns 0. */
extern "C" VELMORA_EXPORT int
client_context_set_token(client_context_s *context, const char *token);
/** Removes the token: signed requests go back to the password scheme.
 * Returns 0. */
extern "C" VELMORA_EXPORT int
client_context_invalidate_token(client_context_s *context);
/** Sets the host of the URL; null sets the empty host. Returns 0. */
extern "C" VELMORA_EXPORT int client_context_set_host(client_context_s *context,
                                                      const char *host);
/** Sets the port of the URL, as given. Returns 0. */
extern "C" VELMORA_EXPORT int client_context_set_port(client_context_s *context,
                                                      int port);
/** Sets the key sent as "LOCAL_AUTH_KEY:"; null sends none. Returns 0. */
extern "C" VELMORA_EXPORT int
client_context_set_auth_key(client_context_s *context, const char *key);

/** The first line of "/etc/local_auth.key" (at most 79 characters, line
 * ends removed), or "NO KEY" when the file gives nothing. */
VELMORA_EXPORT std::string getLocalAuthKey();

/**
 * POSTs `body` (all its bytes, not copied) to "http://" host ":" port
 * `path`. With a user set, the request carries "Date:" and an
 * "AUTHENTICATION:" line signed with HMAC-SHA1 under the token or else
 * under the password's SHA-1 (computed once, kept in the record); the
 * "LOCAL_AUTH_KEY:" line goes with every request that has an auth_key.
 * Returns:
 *    0  status 200; `out` holds the reply body
 *   -1  any other status but 401 (`out` holds the body); or nothing was
 *       sent and `out` is unchanged: a null record or `out`, no libcurl
 *       handle, a date that cannot be stamped, a NUL in the path or host,
 *       or a token (when sent) or auth_key holding a CR, LF or NUL, which
 *       would break a header line
 *   -2  the transfer failed ("Error: [code] - text" is printed on standard
 *       output, no line end), or a refusal's "Date:" could not be parsed;
 *       `out` unchanged
 *   -3  refused (401) without "auth_error: 1" or without a "Date:" line,
 *       an unsigned request refused for its date, or still refused after
 *       two clock re-synchronisations; `out` unchanged
 * A 401 with "auth_error: 1" adds the server's "Date:" minus the request's
 * date to context->clock_offset and sends again: at most 3 attempts.
 */
VELMORA_EXPORT int send_request(client_context_s *context,
                                const std::string &path,
                                const std::string &body, std::string *out);

/**
 * Finds `name` (with its colon) anywhere in `headers`, in any letter case,
 * and stores the text up to the next line feed in `value`: 0. Returns -1
 * when the name is absent and -2 when no line feed follows; `value` is
 * then unchanged.
 */
VELMORA_EXPORT int extract_header(std::string *headers, const std::string &name,
                                  std::string &value);

/** A new string (the caller deletes it) without the leading and trailing
 * spaces of `text` (only spaces give an empty string), or null when `text`
 * is empty. Tabs and line ends are not blanks here. */
VELMORA_EXPORT std::string *stripLeadingAndTrailingBlanks(std::string &text);

/** Leftovers of a test tool, kept for compatibility; no transfer uses
 * them. */
/** In libcurl's read-callback shape: prints "READING source info" on
 * standard output and returns 0 (end of data); reads no argument. */
VELMORA_EXPORT size_t reader(char *buffer, size_t size, size_t count,
                             void *user);
/** Prints the test tool's usage lines on standard output. */
VELMORA_EXPORT void usage();

#endif
