#include "common/redaction.h"

#include <algorithm>
#include <strings.h>

namespace velmora_tools {
namespace {

/* A captured signature could be replayed while its date is fresh, and a
 * key or token works until revoked, so none reaches a file that may be
 * committed. The protocol's own lines, then the names HTTP APIs commonly
 * carry credentials under; one list for headers and query parameters
 * alike, since services use them both ways. A bare "key" is left out: it
 * names plain things too (an object's key, a page cursor), and redacting
 * it would make distinct recorded paths one, so replay could answer the
 * wrong exchange; --redact key adds it for a service that needs it. */
const char *const defaults[] = {"AUTHENTICATION",
                                "LOCAL_AUTH_KEY",
                                "Authorization",
                                "Proxy-Authorization",
                                "Cookie",
                                "X-Api-Key",
                                "Api-Key",
                                "Api_Key",
                                "ApiKey",
                                "X-Goog-Api-Key",
                                "Ocp-Apim-Subscription-Key",
                                "X-Auth-Token",
                                "X-Access-Token",
                                "Access-Token",
                                "Access_Token",
                                "Refresh_Token",
                                "Id_Token",
                                "Private-Token",
                                "X-Vault-Token",
                                "Token",
                                "Auth",
                                "Password",
                                "Secret",
                                "Client_Secret",
                                "SessionId",
                                "Session_Id",
                                "Signature",
                                "Sig",
                                "X-Amz-Signature",
                                "X-Amz-Security-Token"};

bool same_name(const std::string &a, const char *b) {
  return strcasecmp(a.c_str(), b) == 0;
}

} // namespace

const char *const removed = "(removed)";

std::string default_redacted_names() {
  std::string names;
  for (const char *name : defaults)
    names += (names.empty() ? "" : ", ") + std::string(name);
  return names;
}

bool redacted_name(const std::string &name,
                   const std::vector<std::string> &extra) {
  for (const char *secret : defaults)
    if (same_name(name, secret))
      return true;
  for (const std::string &secret : extra)
    if (same_name(name, secret.c_str()))
      return true;
  return false;
}

std::string redacted_path(const std::string &path,
                          const std::vector<std::string> &extra) {
  size_t start = path.find('?');
  if (start == std::string::npos)
    return path;
  std::string out = path.substr(0, ++start);
  while (start <= path.size()) {
    size_t end = std::min(path.find('&', start), path.size());
    std::string parameter = path.substr(start, end - start);
    size_t equals = parameter.find('=');
    if (equals != std::string::npos &&
        redacted_name(parameter.substr(0, equals), extra))
      parameter.replace(equals + 1, std::string::npos, removed);
    out += parameter + (end < path.size() ? "&" : "");
    start = end + 1;
  }
  return out;
}

} // namespace velmora_tools
