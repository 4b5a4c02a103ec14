/* Signature, local key and date checks, done with OpenSSL so that they stay
 * independent of the library's own digests. */
#include <cstring>
#include <ctime>

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/sha.h>

#include "devserver.h"

namespace devserver {
namespace {

const char *const date_format = "%a, %d %b %Y %H:%M:%S %Z";
const long max_date_skew = 300;

time_t server_now(const Config &config) {
  return time(nullptr) + config.clock_offset;
}

std::string render_date(time_t when) {
  struct tm local;
  char text[64] = "";
  if (localtime_r(&when, &local) != nullptr)
    strftime(text, sizeof text, date_format, &local);
  return text;
}

/* Seconds from the server's clock to `text`, with both read as times of
 * one zone, as the client compares them. False when `text` is no date. */
bool date_skew(const std::string &text, const Config &config, long *skew) {
  struct tm client {};
  const char *end = strptime(text.c_str(), date_format, &client);
  if (end == nullptr || *end != '\0')
    return false;
  time_t now = server_now(config);
  struct tm server;
  if (localtime_r(&now, &server) == nullptr)
    return false;
  client.tm_isdst = server.tm_isdst = 0;
  *skew = static_cast<long>(timegm(&client) - timegm(&server));
  return true;
}

std::string hex(const unsigned char *bytes, size_t count) {
  static const char digits[] = "0123456789abcdef";
  std::string text;
  for (size_t i = 0; i < count; i++) {
    text += digits[bytes[i] >> 4];
    text += digits[bytes[i] & 15];
  }
  return text;
}

std::string base64(const std::string &bytes) {
  std::string text(4 * ((bytes.size() + 2) / 3) + 1, '\0');
  int n = EVP_EncodeBlock(reinterpret_cast<unsigned char *>(&text[0]),
                          reinterpret_cast<const unsigned char *>(bytes.data()),
                          static_cast<int>(bytes.size()));
  text.resize(n);
  return text;
}

bool unbase64(const std::string &text, std::string *bytes) {
  if (text.size() % 4 != 0 || text.size() > 4096)
    return false;
  std::string out(text.size() / 4 * 3 + 1, '\0');
  int n = EVP_DecodeBlock(reinterpret_cast<unsigned char *>(&out[0]),
                          reinterpret_cast<const unsigned char *>(text.data()),
                          static_cast<int>(text.size()));
  if (n < 0)
    return false;
  /* EVP_DecodeBlock counts the padding as zero bytes. */
  for (size_t i = text.size(); i > 0 && text[i - 1] == '='; i--)
    n--;
  out.resize(n < 0 ? 0 : n);
  *bytes = out;
  return true;
}

bool same_text(const std::string &a, const std::string &b) {
  return a.size() == b.size() &&
         CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

/* The account's signing key for the AUTHENTICATION line's fields (after
 * the scheme word); false with the reason in the note. */
bool signing_key(const Config &config, const std::string &line,
                 bool token_scheme, std::string *key) {
  /* Base64 has no colon, so the user ends at the first one and the
   * signature starts after the last; a token may hold colons. */
  size_t first = line.find(':'), last = line.rfind(':');
  std::string user;
  if (first == std::string::npos || (token_scheme && first == last) ||
      !unbase64(line.substr(0, first), &user)) {
    note.detail = "malformed AUTHENTICATION";
    return false;
  }
  note.user = user;
  const Account *account = find_account(config, user);
  if (account == nullptr) {
    note.detail = "unknown user";
    return false;
  }
  if (token_scheme) {
    std::string token = line.substr(first + 1, last - first - 1);
    if (!account->has_token || !same_text(token, account->token)) {
      note.detail = "wrong token";
      return false;
    }
    *key = account->token;
    return true;
  }
  if (!account->has_password) {
    note.detail = "account has no password";
    return false;
  }
  *key = account->password_sha1;
  return true;
}

bool signature_matches(const Request &req, const std::string &body,
                       const std::string &key, const std::string &signature) {
  std::string date = req.get_header_value("Date");
  std::string signed_text =
      "POST " + req.target + "\nDate: " + date + "\n" + body;
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  HMAC(EVP_sha1(), key.data(), static_cast<int>(key.size()),
       reinterpret_cast<const unsigned char *>(signed_text.data()),
       signed_text.size(), digest, &length);
  return same_text(
      signature, base64(std::string(reinterpret_cast<char *>(digest), length)));
}

/* 0 when the date is within the skew, else the "auth_error" value. */
int check_date(const Request &req, const Config &config) {
  long skew;
  if (!date_skew(req.get_header_value("Date"), config, &skew)) {
    note.detail = "unreadable Date";
    return 2;
  }
  if (skew > max_date_skew || skew < -max_date_skew) {
    note.detail = "date " + std::to_string(skew < 0 ? -skew : skew) + " s " +
                  (skew < 0 ? "behind" : "ahead");
    return 1;
  }
  return 0;
}

} // namespace

std::string sha1_hex(const std::string &text) {
  unsigned char digest[SHA_DIGEST_LENGTH];
  SHA1(reinterpret_cast<const unsigned char *>(text.data()), text.size(),
       digest);
  return hex(digest, sizeof digest);
}

const Account *find_account(const Config &config, const std::string &name) {
  for (const Account &account : config.accounts)
    if (account.name == name)
      return &account;
  return nullptr;
}

int authenticate(const Request &req, const std::string &body,
                 const Config &config) {
  if (config.require_auth_key &&
      (!req.has_header("LOCAL_AUTH_KEY") ||
       !same_text(req.get_header_value("LOCAL_AUTH_KEY"), config.auth_key))) {
    note.detail = "wrong local auth key";
    return 2;
  }
  std::string line = req.get_header_value("AUTHENTICATION");
  bool token_scheme = line.rfind("TOKEN-DATE ", 0) == 0;
  if (!token_scheme && line.rfind("HMAC-SHA1-DATE ", 0) != 0) {
    note.detail = line.empty() ? "unsigned request" : "unknown scheme";
    return 2;
  }
  line.erase(0, line.find(' ') + 1);
  std::string key;
  if (!signing_key(config, line, token_scheme, &key))
    return 2;
  if (!req.has_header("Date")) {
    note.detail = "no Date header";
    return 2;
  }
  if (!signature_matches(req, body, key, line.substr(line.rfind(':') + 1))) {
    note.detail = "wrong signature";
    return 2;
  }
  return check_date(req, config);
}

void stamp_date(const Config &config, Response &res) {
  if (!res.has_header("Date"))
    res.set_header("Date", render_date(server_now(config)));
}

void refuse(const Config &config, int auth_error, Response &res) {
  res.set_header("auth_error", std::to_string(auth_error));
  if (auth_error == 1)
    res.set_header("Date", render_date(server_now(config)));
  std::string why = note.detail;
  note.detail = "auth_error " + std::to_string(auth_error) + ": " + why;
  answer_error(res, 401, why);
}

} // namespace devserver
