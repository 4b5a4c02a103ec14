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

#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

class LoopbackServer {
public:
  /* Given the raw request, returns the raw reply. */
  using Responder = std::function<std::string(const std::string &request)>;

  explicit LoopbackServer(Responder respond);
  /* Answers request n with replies[n], and the last one once they are spent. */
  explicit LoopbackServer(std::vector<std::string> replies);
  ~LoopbackServer();

  int port() const {
    return port_;
  }
  /* Every request received so far, head and body, in order of arrival. */
  std::vector<std::string> requests() const;

private:
  void serve();
  void answer(int connection);

  Responder respond_;
  int port_ = 0;
  int listener_;
  mutable std::mutex mutex_;
  std::vector<std::string> requests_;
  std::thread thread_; /* last: starts serving once the rest is made */
};

/* Status line, `headers` (whole lines), Content-Length, a blank line, `body`.
 */
std::string http_reply(int status, const std::string &headers = "",
                       const std::string &body = "");

#endif
