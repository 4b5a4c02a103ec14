/* velmora-request's internals shared between its files: the command line's
 * settings, exit statuses, and one call of send_request with its outcome
 * told. */
#ifndef VELMORA_REQUEST_H
#define VELMORA_REQUEST_H

#include <optional>
#include <string>

#include <velmora/velmora.h>

namespace velmora_request {

/* Exit codes, after curl's for the same failures. */
enum Exit {
  exit_ok = 0,
  exit_usage = 2,
  exit_transfer = 7,
  exit_no_page = 8,
  exit_http_error = 22,
  exit_refused = 67,
};

struct Options {
  const char *host = nullptr;
  long port = -1;
  const char *user = nullptr;
  std::optional<std::string> password;
  std::string password_hash;
  std::optional<std::string> token;
  std::optional<std::string> auth_key;
  bool verbose = false;
  bool pretty = false;
  bool paginate = false;
  long page_size = 100;
  std::string path;
  std::string body;
};

/* Calls (send.cpp) */
/* send_request, with what the library prints on standard output for a
 * failed transfer kept apart in `printed`, so that standard output holds
 * only replies. */
int send_quietly(client_context_s *context, const std::string &path,
                 const std::string &body, std::string *reply,
                 std::string *printed);
/* The exit status for the last call's result, after one line on standard
 * error for a failure. */
int report(int result, const Options &o, const std::string &url,
           const std::string &printed);

/* Walks (paginate.cpp): --paginate's whole run; the exit status. */
int paginate(client_context_s *context, const Options &o,
             const std::string &url);

} // namespace velmora_request

#endif
