/* Readers of the raw requests a loopback server records. */
#ifndef VELMORA_TEST_TRANSPORT_HELPERS_H
#define VELMORA_TEST_TRANSPORT_HELPERS_H

#include <algorithm>
#include <ctime>
#include <string>

/* What follows `prefix` on the first head line that starts with it, or
 * "<absent>". */
inline std::string header_line(const std::string &request,
                               const std::string &prefix) {
  const std::string head = request.substr(0, request.find("\r\n\r\n"));
  for (size_t start = 0; start < head.size();) {
    const size_t end = std::min(head.find("\r\n", start), head.size());
    if (head.compare(start, prefix.size(), prefix) == 0)
      return head.substr(start + prefix.size(), end - start - prefix.size());
    start = end + 2;
  }
  return "<absent>";
}

inline std::string request_body(const std::string &request) {
  return request.substr(std::min(request.find("\r\n\r\n") + 4, request.size()));
}

/* A request's "Date:" with its fields read as UTC; -1 when unreadable. */
inline time_t request_time(const std::string &request) {
  struct tm date {};
  const std::string text = header_line(request, "Date:");
  if (strptime(text.c_str(), "%a, %d %b %Y %H:%M:%S %Z", &date) == nullptr)
    return -1;
  return timegm(&date);
}

/* A reply date `seconds` after the request's date, fields written as UTC. */
inline std::string date_after(const std::string &request, long seconds) {
  const time_t when = request_time(request) + seconds;
  struct tm shifted;
  char text[64];
  strftime(text, sizeof text, "%a, %d %b %Y %H:%M:%S GMT",
           gmtime_r(&when, &shifted));
  return text;
}

#endif
