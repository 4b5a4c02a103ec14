/*
 * A raw HTTP peer on 127.0.0.1 for tests: it listens on an ephemeral port,
 * records every request byte for byte and answers from a script, so header
 * spelling and malformed replies stay under the test's control.
 *
 * One thread serves one connection at a time: it reads one request (head
 * and Content-Length body), records it, writes the reply and closes the
 * connection. An empty reply closes the connection without answering.
 */
#ifndef VELMORA_TEST_LOOPBACK_SERVER_H
#define VELMORA_TEST_LOOPBACK_SERVER_H

#include <atomic>
#include <cstddef>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

class LoopbackServer {
public:
  /* Given the raw request, returns the raw reply. */
  using Responder = std::function<std::string(const std::string &request)>;

  /* Answers request n with replies[n]; once the script is spent, with its
   * last reply again. */
  explicit LoopbackServer(std::vector<std::string> replies);
  explicit LoopbackServer(Responder respond);
  /* Stops serving and joins the thread. */
  ~LoopbackServer();

  LoopbackServer(const LoopbackServer &) = delete;
  LoopbackServer &operator=(const LoopbackServer &) = delete;

  int port() const {
    return port_;
  }
  /* Every request received so far, head and body, in order of arrival. */
  std::vector<std::string> requests() const;
  size_t request_count() const;

private:
  void serve();
  void answer(int connection);

  Responder respond_;
  int listener_ = -1;
  int port_ = 0;
  std::atomic<bool> stopping_{false};
  mutable std::mutex mutex_;
  std::vector<std::string> requests_;
  std::thread thread_;
};

/* A whole reply: status line, `headers` (complete lines, each ending in
 * "\r\n"), Content-Length, "Connection: close", a blank line, `body`. */
/* A reply date an hour after now, in the form servers write it. */
std::string date_in_an_hour();

std::string http_reply(int status, const std::string &headers = "",
                       const std::string &body = "");

/* The head of a raw request, up to and without the blank line. */
std::string request_head(const std::string &request);
/* What follows the head's blank line. */
std::string request_body(const std::string &request);
/* The head's lines, without their "\r\n"; the request line first. */
std::vector<std::string> request_lines(const std::string &request);

/* A port on 127.0.0.1 that was free a moment ago and has no listener. */
int closed_port();

#endif
