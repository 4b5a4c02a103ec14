#include "transport_internal.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/time.h>

#include <curl/curl.h>

#include "velmora/digest.h"
#include "velmora/transport.h"
#include "velmora/values.h"

namespace {

/* One call sends at most this many requests: the first and two more after
 * clock re-synchronisations. */
const int max_attempts = 3;
const char date_format[] = "%a, %d %b %Y %H:%M:%S %Z";
const size_t signature_length = 20;

/* What one transfer gave: libcurl's code and message, the status, and the
 * reply's body and header lines. */
struct reply {
  CURLcode code = CURLE_OK;
  char error[CURL_ERROR_SIZE] = {};
  int64_t status = 0;
  std::string body;
  std::string headers;
};

/* The write function of both the body and the header lines. */
size_t append_to_string(char *data, size_t size, size_t count, void *sink) {
  if (sink == nullptr)
    return 0;
  size_t length = size * count;
  static_cast<std::string *>(sink)->append(data, length);
  return length;
}

/* True when a header value could end its line early or start another. */
bool breaks_line(const std::string *value) {
  static const char line_breakers[] = {'\r', '\n', '\0'};
  return value != nullptr &&
         value->find_first_of(line_breakers, 0, sizeof line_breakers) !=
             std::string::npos;
}

int64_t saturating_add(int64_t a, int64_t b) {
  int64_t sum;
  if (__builtin_add_overflow(a, b, &sum))
    return b > 0 ? INT64_MAX : INT64_MIN;
  return sum;
}

/* The signing key of the password scheme, computed once per password.
 * Null when the digest cannot be allocated. */
const char *password_key(client_context_s *context) {
  if (context->password_sha1 != nullptr)
    return context->password_sha1;
  const std::string empty;
  const std::string &password =
      context->password != nullptr ? *context->password : empty;
  uint8_t *digest = sha1_hash(password.data(), password.size());
  if (digest == nullptr)
    return nullptr;
  char *hex = static_cast<char *>(malloc(41));
  if (hex != nullptr)
    toHexString(reinterpret_cast<const char *>(digest), hex);
  safe_free(reinterpret_cast<void **>(&digest));
  context->password_sha1 = hex;
  return hex;
}

/* Appends `line` to `headers`; false, with `headers` as it was, when
 * libcurl cannot allocate. */
bool append_header(curl_slist *&headers, const char *line) {
  curl_slist *list = curl_slist_append(headers, line);
  if (list == nullptr)
    return false;
  headers = list;
  return true;
}

/* Stamps the request with the corrected clock: fills `stamp` and writes its
 * text to `date`; false when it cannot be rendered. */
bool stamp_date(const client_context_s *context, struct tm &stamp,
                char (&date)[34]) {
  struct timeval now;
  gettimeofday(&now, nullptr);
  time_t seconds = saturating_add(now.tv_sec, context->clock_offset);
  return localtime_r(&seconds, &stamp) != nullptr &&
         strftime(date, sizeof date, date_format, &stamp) != 0;
}

/* The signing key: the token, or else the password's digest. False when
 * the digest cannot be allocated. */
bool signing_key(client_context_s *context, const char *&key,
                 size_t &key_length) {
  if (context->token != nullptr) {
    key = context->token->data();
    key_length = context->token->size();
    return true;
  }
  key = password_key(context);
  if (key == nullptr)
    return false;
  key_length = strlen(key);
  return true;
}

/* The "AUTHENTICATION:" line of a request signed with `signature`. */
std::string authentication_line(const client_context_s *context,
                                const char (&signature)[signature_length]) {
  const std::string *token = context->token;
  const std::string &user = *context->user;
  std::string line("AUTHENTICATION:");
  line.append(token != nullptr ? "TOKEN-DATE " : "HMAC-SHA1-DATE ");
  line.append(base64_encode(user.data(), unsigned(user.size())));
  line.push_back(':');
  if (token != nullptr)
    line.append(*token).push_back(':');
  line.append(base64_encode(signature, signature_length));
  return line;
}

/*
 * Appends the "Date:" and "AUTHENTICATION:" lines of a signed request and
 * keeps its stamp. False when the request cannot be signed: the stamp
 * cannot be rendered, a length passes the digest interface's range, or an
 * allocation fails.
 */
bool sign(client_context_s *context, const std::string &path,
          const std::string &body, struct tm &stamp, curl_slist *&headers) {
  char date[34];
  if (!stamp_date(context, stamp, date))
    return false;
  std::string to_sign;
  to_sign.reserve(path.size() + body.size() + 48);
  to_sign.append("POST ").append(path).append("\nDate: ").append(date);
  to_sign.push_back('\n');
  to_sign.append(body);

  const char *key = nullptr;
  size_t key_length = 0;
  if (!signing_key(context, key, key_length))
    return false;
  if (to_sign.size() > INT_MAX || key_length > INT_MAX ||
      context->user->size() > UINT_MAX)
    return false;
  char signature[signature_length];
  hmac_sha(key, int(key_length), to_sign.data(), int(to_sign.size()), signature,
           int(signature_length));
  return append_header(headers, (std::string("Date:") + date).c_str()) &&
         append_header(headers,
                       authentication_line(context, signature).c_str());
}

/*
 * libcurl drops a header whose value is only blanks; its "Name;" form
 * sends the name with an empty value, so an empty key still reaches the
 * server.
 */
std::string key_line(const std::string &key) {
  if (key.find_first_not_of(" \t\v\f") == std::string::npos)
    return "LOCAL_AUTH_KEY;";
  return "LOCAL_AUTH_KEY: " + key;
}

/* The header lines of one attempt, or null when they cannot be made. */
curl_slist *request_headers(client_context_s *context, const std::string &path,
                            const std::string &body, bool is_signed,
                            struct tm &stamp) {
  curl_slist *headers = nullptr;
  bool made = !is_signed || sign(context, path, body, stamp, headers);
  if (made && context->auth_key != nullptr)
    made = append_header(headers, key_line(*context->auth_key).c_str());
  if (made)
    made = append_header(headers, "Expect:");
  if (!made) {
    curl_slist_free_all(headers);
    return nullptr;
  }
  return headers;
}

void set_options(CURL *curl, const client_context_s *context,
                 const std::string &url, const std::string &body,
                 curl_slist *headers, reply &got) {
  curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
  curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, got.error);
  curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
  curl_easy_setopt(curl, CURLOPT_HEADER, 0L);
  curl_easy_setopt(curl, CURLOPT_FOLLOWLOCATION, 1L);
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, append_to_string);
  curl_easy_setopt(curl, CURLOPT_WRITEDATA, &got.body);
  curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, append_to_string);
  curl_easy_setopt(curl, CURLOPT_HEADERDATA, &got.headers);
  curl_easy_setopt(curl, CURLOPT_POST, 1L);
  curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.data());
  curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE, long(body.size()));
  if (context->verbose != 0)
    curl_easy_setopt(curl, CURLOPT_VERBOSE, 1L);
}

/* Sends one request; false when nothing could be sent (no libcurl handle,
 * or header lines that cannot be made). */
bool transfer(client_context_s *context, const std::string &url,
              const std::string &path, const std::string &body, bool is_signed,
              struct tm &stamp, reply &got) {
  CURL *curl = curl_easy_init();
  if (curl == nullptr)
    return false;
  curl_slist *headers = request_headers(context, path, body, is_signed, stamp);
  if (headers == nullptr) {
    curl_easy_cleanup(curl);
    return false;
  }
  set_options(curl, context, url, body, headers, got);
  got.code = curl_easy_perform(curl);
  curl_slist_free_all(headers);
  long status_code = 0;
  curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status_code);
  got.status = status_code;
  curl_easy_cleanup(curl);
  return true;
}

enum class Outcome { done, resynchronised };

/*
 * Moves the clock offset by the distance from the request's stamp to the
 * refusal's "Date:". Sets `result` to -2 when that date cannot be read, or
 * -3 when there is none.
 */
Outcome resynchronise(client_context_s *context, std::string &headers,
                      const struct tm &stamp, int &result) {
  std::string value;
  if (extract_header(&headers, "Date:", value) != 0)
    return Outcome::done;
  std::string *stripped = stripLeadingAndTrailingBlanks(value);
  struct tm server;
  memset(&server, 0, sizeof server);
  bool parsed = stripped != nullptr &&
                strptime(stripped->c_str(), date_format, &server) != nullptr;
  delete stripped;
  if (!parsed) {
    result = -2;
    return Outcome::done;
  }
  context->clock_offset = saturating_add(
      context->clock_offset, velmora::clock_difference(stamp, server));
  return Outcome::resynchronised;
}

/*
 * The result of one transfer's reply. Returns `resynchronised` when the
 * server refused the date, the offset has been corrected and another
 * attempt may follow.
 */
Outcome classify(client_context_s *context, reply &got, bool is_signed,
                 const struct tm &stamp, std::string *out, int &result) {
  if (got.status != 401) {
    if (got.code != CURLE_OK) {
      printf("Error: [%d] - %s", int(got.code), got.error);
      result = -2;
      return Outcome::done;
    }
    *out = std::move(got.body);
    result = got.status == 200 ? 0 : -1;
    return Outcome::done;
  }
  result = -3;
  std::string value;
  if (extract_header(&got.headers, "auth_error:", value) != 0 ||
      strtol(value.c_str(), nullptr, 10) != 1)
    return Outcome::done;
  /* A request without a date gives nothing to measure the clock against. */
  if (!is_signed)
    return Outcome::done;
  return resynchronise(context, got.headers, stamp, result);
}

/* One request and the classification of its reply; sets `result`. */
Outcome attempt(client_context_s *context, const std::string &url,
                const std::string &path, const std::string &body,
                std::string *out, bool is_signed, int &result) {
  result = -1;
  struct tm stamp;
  memset(&stamp, 0, sizeof stamp);
  reply got;
  if (!transfer(context, url, path, body, is_signed, stamp, got))
    return Outcome::done;
  return classify(context, got, is_signed, stamp, out, result);
}

} // namespace

int send_request(client_context_s *context, const std::string &path,
                 const std::string &body, std::string *out) {
  if (context == nullptr || out == nullptr || context->host == nullptr)
    return -1;
  const bool is_signed = context->user != nullptr && !context->user->empty();
  /* A header value must never end its line early or start another. */
  if ((is_signed && breaks_line(context->token)) ||
      breaks_line(context->auth_key))
    return -1;
  /* The URL is a C string: a NUL would send another path than the one
   * signed. */
  if (path.find('\0') != std::string::npos ||
      context->host->find('\0') != std::string::npos)
    return -1;

  std::string url("http://");
  url.append(*context->host).push_back(':');
  url.append(std::to_string(context->port)).append(path);

  int result = -1;
  for (int count = 1; count <= max_attempts; ++count) {
    if (attempt(context, url, path, body, out, is_signed, result) ==
        Outcome::done)
      break;
    result = -3;
  }
  return result;
}
