/* One call of send_request and how it went, as velmora-request tells it. */
#include <cstdio>
#include <curl/curl.h>
#include <dlfcn.h>
#include <unistd.h>

#include "request.h"

namespace {

/*
 * send_request makes up to three attempts and tells only how the last one
 * ended. This program defines libcurl's curl_easy_perform, and the link
 * exports it to the library, so that the attempts can be counted: a date
 * still refused after a re-synchronisation then tells itself apart from
 * refused credentials. Each attempt goes on to libcurl's own function.
 */
int attempts = 0;
/* The last reply's "auth_error:" value, "" when it had none: a refusal's
 * cause, as far as the service tells it. */
std::string auth_error;

} // namespace

extern "C" __attribute__((visibility("default"))) CURLcode
curl_easy_perform(CURL *curl) {
  using Perform = CURLcode (*)(CURL *);
  static const Perform perform =
      reinterpret_cast<Perform>(dlsym(RTLD_NEXT, "curl_easy_perform"));
  attempts++;
  CURLcode code = perform == nullptr ? CURLE_FAILED_INIT : perform(curl);
  curl_header *header = nullptr;
  auth_error.clear();
  if (curl_easy_header(curl, "auth_error", 0, CURLH_HEADER, -1, &header) ==
      CURLHE_OK)
    auth_error = header->value;
  return code;
}

namespace velmora_request {
namespace {

/* The library refuses to send such a header value. */
bool breaks_line(const std::optional<std::string> &text) {
  return text && text->find_first_of("\r\n") != std::string::npos;
}

/* Without one the library signs with the empty password's digest. */
bool has_secret(const Options &o) {
  return o.password || !o.password_hash.empty() || o.token;
}

/* A 401 by what can be known of its cause: who signed, with what, whether
 * the date passed, and the service's auth_error. Only the last reply's
 * auth_error tells the cause: after a re-synchronisation it may name
 * another one than the date. */
void report_refusal(const Options &o, const char *where, bool resynchronised) {
  bool date_refused = auth_error.empty() || auth_error == "1";
  if (o.user == nullptr || *o.user == '\0')
    fprintf(stderr,
            "velmora-request: %s refused the request (401): it was not "
            "signed; give --user with --password or --token\n",
            where);
  else if (resynchronised && date_refused)
    fprintf(stderr,
            "velmora-request: %s refused the request (401) even after the "
            "clock was re-synchronised from its Date:; a proxy that puts "
            "its own Date: in place of the service's is a likely cause\n",
            where);
  else if (!has_secret(o))
    fprintf(stderr,
            "velmora-request: %s refused the request (401): --user was "
            "given without a secret; give --password, --password-file, "
            "--password-hash, --token or --token-file\n",
            where);
  else if (!date_refused)
    fprintf(stderr,
            "velmora-request: %s refused the credentials (401, auth_error "
            "%s): the date was not the cause; check --user, the password or "
            "token, and the auth key\n",
            where, auth_error.c_str());
  else
    fprintf(stderr,
            "velmora-request: %s refused the credentials or the date "
            "(401)\n",
            where);
}

} // namespace

int report(int result, const Options &o, const std::string &url,
           const std::string &printed) {
  const char *where = url.c_str();
  switch (result) {
  case 0:
    return exit_ok;
  case -1:
    if (breaks_line(o.token) || breaks_line(o.auth_key))
      fprintf(stderr, "velmora-request: the token or the auth key holds a "
                      "line break; nothing was sent\n");
    else
      fprintf(stderr,
              "velmora-request: %s answered an HTTP error other than 200 "
              "and 401, or the request could not be made\n",
              where);
    return exit_http_error;
  case -2:
    if (printed.empty())
      fprintf(stderr, "velmora-request: %s sent a Date that cannot be read\n",
              where);
    else
      fprintf(stderr, "velmora-request: transfer to %s failed: %s\n", where,
              printed.c_str());
    return exit_transfer;
  default:
    report_refusal(o, where, attempts > 1);
    return exit_refused;
  }
}

int send_quietly(client_context_s *context, const std::string &path,
                 const std::string &body, std::string *reply,
                 std::string *printed) {
  attempts = 0;
  fflush(stdout);
  FILE *sink = tmpfile();
  int saved = sink != nullptr ? dup(STDOUT_FILENO) : -1;
  if (saved < 0) {
    if (sink != nullptr)
      fclose(sink);
    return send_request(context, path, body, reply);
  }
  dup2(fileno(sink), STDOUT_FILENO);
  int result = send_request(context, path, body, reply);
  fflush(stdout);
  dup2(saved, STDOUT_FILENO);
  close(saved);
  rewind(sink);
  char buffer[512];
  size_t n;
  while ((n = fread(buffer, 1, sizeof buffer, sink)) > 0)
    printed->append(buffer, n);
  fclose(sink);
  return result;
}

} // namespace velmora_request
