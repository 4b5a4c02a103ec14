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

/* The write function of both reply sinks. */
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

/*
 * Appends the "Date:" and "AUTHENTICATION:" lines of a signed request and
 * keeps its stamp. False when the request cannot be signed: the stamp
 * cannot be rendered, a length passes the digest interface's range, or an
 * allocation fails.
 */
bool sign(client_context_s *context, const std::string &path,
          const std::string &body, struct tm &stamp, curl_slist *&headers) {
  struct timeval now;
  gettimeofday(&now, nullptr);
  time_t seconds = saturating_add(now.tv_sec, context->clock_offset);
  char date[34];
  if (localtime_r(&seconds, &stamp) == nullptr ||
      strftime(date, sizeof date, date_format, &stamp) == 0)
    return false;

  std::string to_sign;
  to_sign.reserve(path.size() + body.size() + 48);
  to_sign.append("POST ").append(path).append("\nDate: ").append(date);
  to_sign.push_back('\n');
  to_sign.append(body);

  const std::string *token = context->token;
  const char *key;
  size_t key_length;
  if (token != nullptr) {
    key = token->data();
    key_length = token->size();
  } else {
    key = password_key(context);
    if (key == nullptr)
      return false;
    key_length = strlen(key);
  }
  const std::string &user = *context->user;
  if (to_sign.size() > INT_MAX || key_length > INT_MAX ||
      user.size() > UINT_MAX)
    return false;

  char signature[signature_length];
  hmac_sha(key, int(key_length), to_sign.data(), int(to_sign.size()), signature,
           int(signature_length));

  std::string line("Date:");
  line.append(date);
  curl_slist *list = curl_slist_append(headers, line.c_str());
  if (list == nullptr)
    return false;
  headers = list;

  line.assign("AUTHENTICATION:");
  line.append(token != nullptr ? "TOKEN-DATE " : "HMAC-SHA1-DATE ");
  line.append(base64_encode(user.data(), unsigned(user.size())));
  line.push_back(':');
  if (token != nullptr)
    line.append(*token).push_back(':');
  line.append(base64_encode(signature, signature_length));
  list = curl_slist_append(headers, line.c_str());
  if (list == nullptr)
    return false;
  headers = list;
  return true;
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
  if (made && context->auth_key != nullptr) {
    curl_slist *list =
        curl_slist_append(headers, key_line(*context->auth_key).c_str());
    made = list != nullptr;
    if (made)
      headers = list;
  }
  if (made) {
    curl_slist *list = curl_slist_append(headers, "Expect:");
    made = list != nullptr;
    if (made)
      headers = list;
  }
  if (!made) {
    curl_slist_free_all(headers);
    return nullptr;
  }
  return headers;
}

enum class Outcome { done, resynchronised };

/*
 * One request and the classification of its reply. Sets `result` and
 * returns `resynchronised` when the server refused the date, the offset has
 * been corrected and another attempt may follow.
 */
Outcome attempt(client_context_s *context, const std::string &url,
                const std::string &path, const std::string &body,
                std::string *out, bool is_signed, int &result) {
  result = -1;
  CURL *curl = curl_easy_init();
  if (curl == nullptr)
    return Outcome::done;
  struct tm stamp;
  memset(&stamp, 0, sizeof stamp);
  curl_slist *headers = request_headers(context, path, body, is_signed, stamp);
  if (headers == nullptr) {
    curl_easy_cleanup(curl);
    return Outcome::done;
  }

  char error[CURL_ERROR_SIZE];
  error[0] = '\0';
  std::string body_sink;
  std::string header_sink;
  curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
  curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, error);
  curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
  curl_easy_setopt(curl, CURLOPT_HEADER, 0L);
  curl_easy_setopt(curl, CURLOPT_FOLLOWLOCATION, 1L);
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, append_to_string);
  curl_easy_setopt(curl, CURLOPT_WRITEDATA, &body_sink);
  curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, append_to_string);
  curl_easy_setopt(curl, CURLOPT_HEADERDATA, &header_sink);
  curl_easy_setopt(curl, CURLOPT_POST, 1L);
  curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.data());
  curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE, long(body.size()));
  if (context->verbose)
    curl_easy_setopt(curl, CURLOPT_VERBOSE, 1L);

  CURLcode code = curl_easy_perform(curl);
  curl_slist_free_all(headers);
  long status_code = 0;
  curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status_code);
  const int64_t status = status_code;
  curl_easy_cleanup(curl);

  if (status != 401) {
    if (code != CURLE_OK) {
      printf("Error: [%d] - %s", int(code), error);
      result = -2;
      return Outcome::done;
    }
    *out = std::move(body_sink);
    result = status == 200 ? 0 : -1;
    return Outcome::done;
  }

  result = -3;
  std::string value;
  if (extract_header(&header_sink, "auth_error:", value) != 0 ||
      strtol(value.c_str(), nullptr, 10) != 1)
    return Outcome::done;
  /* A request without a date gives nothing to measure the clock against. */
  if (!is_signed)
    return Outcome::done;
  if (extract_header(&header_sink, "Date:", value) != 0)
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
  context->clock_offset =
      saturating_add(context->clock_offset, clock_difference(stamp, server));
  return Outcome::resynchronised;
}

/* Days from the start of year 0 to the start of `year`, proleptic
 * Gregorian; floor division keeps it right for negative years. */
int64_t days_before_year(int64_t year) {
  auto floor_div = [](int64_t a, int64_t b) {
    return a / b - (a % b != 0 && (a < 0) != (b < 0));
  };
  return 365 * year + floor_div(year + 3, 4) - floor_div(year + 99, 100) +
         floor_div(year + 399, 400);
}

bool is_leap(int64_t year) {
  return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

int64_t day_of_year(const struct tm &time) {
  static const int before_month[12] = {0,   31,  59,  90,  120, 151,
                                       181, 212, 243, 273, 304, 334};
  if (time.tm_mon < 0 || time.tm_mon > 11)
    return time.tm_yday;
  int64_t year = int64_t(time.tm_year) + 1900;
  return before_month[time.tm_mon] + (time.tm_mon > 1 && is_leap(year)) +
         time.tm_mday - 1;
}

} // namespace

int64_t clock_difference(const struct tm &stamp, const struct tm &server) {
  int64_t days = days_before_year(int64_t(server.tm_year) + 1900) -
                 days_before_year(int64_t(stamp.tm_year) + 1900) +
                 day_of_year(server) - day_of_year(stamp);
  int64_t hours = days * 24 + (int64_t(server.tm_hour) - stamp.tm_hour);
  int64_t minutes = hours * 60 + (int64_t(server.tm_min) - stamp.tm_min);
  return minutes * 60 + (int64_t(server.tm_sec) - stamp.tm_sec);
}

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
