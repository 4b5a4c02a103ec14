/*
 * A raw HTTP peer on 127.0.0.1 for tests: it listens on an ephemeral port,
 * records every request byte for byte and answers from a script, so header
 * spelling and malformed replies stay under the test's control. One thread
 * serves one connection at a time: it reads one request (head and
 * Content-Length body), records it, writes the reply and closes the
 * connection. An empty reply closes the connection without answering.
 */
#ifndef VELMORA_TEST_LOOPBACK_SERVER_H
#define VELMORA_TEST_LOOPBACK_SERVER_H

#include <ctime>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

class LoopbackServer {
public:
  /* Answers request n with replies[n] (the last once they are spent), each
   * "@" written as the date `lead` seconds after the request's. */
  explicit LoopbackServer(std::vector<std::string> replies, long lead = 0);
  ~LoopbackServer();

  int port() const {
    return port_;
  }
  /* Every request received so far, head and body, in order of arrival. */
  std::vector<std::string> requests() const;

private:
  void serve();
  std::string reply_to(const std::string &request);

  const std::vector<std::string> replies_;
  const long lead_;
  int port_ = 0;
  int listener_;
  mutable std::mutex mutex_;
  std::vector<std::string> requests_;
  std::thread thread_;
};

/* Status line, `headers` (whole lines), Content-Length, a blank line and
 * `body`.
 */
std::string http_reply(int status, const std::string &headers = "",
                       const std::string &body = "");

/* What follows `prefix` at the start of a head line, or "<absent>". */
inline std::string header_line(const std::string &request,
                               const std::string &prefix) {
  const std::string head = "\r\n" + request.substr(0, request.find("\r\n\r\n"));
  const size_t at = head.find("\r\n" + prefix) + 2 + prefix.size();
  return at < 2 + prefix.size() ? "<absent>"
                                : head.substr(at, head.find("\r\n", at) - at);
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
