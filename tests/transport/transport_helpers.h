/* Request readers shared by the transport tests. */
#ifndef VELMORA_TEST_TRANSPORT_HELPERS_H
#define VELMORA_TEST_TRANSPORT_HELPERS_H

#include <ctime>
#include <memory>
#include <string>

#include "loopback_server.h"
#include "oracles.h"
#include "velmora/transport.h"

/* What follows `prefix` on the first head line that starts with it, or
 * "<absent>". */
inline std::string line_value(const std::string &request,
                              const std::string &prefix) {
  for (const std::string &line : request_lines(request))
    if (line.compare(0, prefix.size(), prefix) == 0)
      return line.substr(prefix.size());
  return "<absent>";
}

/* A request's "Date:" with its fields read as UTC; -1 when unreadable. */
inline time_t request_time(const std::string &request) {
  struct tm date {};
  const std::string text = line_value(request, "Date:");
  if (strptime(text.c_str(), "%a, %d %b %Y %H:%M:%S %Z", &date) == nullptr)
    return -1;
  return timegm(&date);
}

/* A reply date `seconds` after the request's date, fields read as UTC. */
inline std::string date_after(const std::string &request, long seconds) {
  const time_t when = request_time(request) + seconds;
  struct tm shifted;
  gmtime_r(&when, &shifted);
  char text[64];
  strftime(text, sizeof text, "%a, %d %b %Y %H:%M:%S GMT", &shifted);
  return text;
}

struct ContextDeleter {
  void operator()(client_context_s *context) {
    client_context_free(context);
  }
};
using Context = std::unique_ptr<client_context_s, ContextDeleter>;

#endif
