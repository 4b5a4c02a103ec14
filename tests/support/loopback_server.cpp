#include "loopback_server.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <netinet/in.h>
#include <stdexcept>
#include <strings.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

/* A socket bound to an ephemeral port of 127.0.0.1, and that port. */
int bound_socket(int &port) {
  int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  if (fd < 0 ||
      bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
      getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length) != 0) {
    if (fd >= 0)
      close(fd);
    throw std::runtime_error("cannot bind a loopback socket");
  }
  port = ntohs(address.sin_port);
  return fd;
}

/* The Content-Length of a request whose head has arrived. */
size_t content_length(const std::string &request) {
  static const char name[] = "content-length:";
  for (const std::string &line : request_lines(request))
    if (strncasecmp(line.c_str(), name, sizeof name - 1) == 0)
      return strtoul(line.c_str() + sizeof name - 1, nullptr, 10);
  return 0;
}

} // namespace

LoopbackServer::LoopbackServer(std::vector<std::string> replies)
    : LoopbackServer(Responder([replies = std::move(replies), next = size_t(0)](
                                   const std::string &) mutable -> std::string {
        if (replies.empty())
          return "";
        size_t at = next < replies.size() ? next++ : replies.size() - 1;
        return replies[at];
      })) {}

LoopbackServer::LoopbackServer(Responder respond)
    : respond_(std::move(respond)) {
  listener_ = bound_socket(port_);
  if (listen(listener_, 64) != 0) {
    close(listener_);
    throw std::runtime_error("listen failed");
  }
  thread_ = std::thread([this] { serve(); });
}

LoopbackServer::~LoopbackServer() {
  /* Shutting the listener down makes a waiting accept return at once. */
  stopping_ = true;
  shutdown(listener_, SHUT_RDWR);
  thread_.join();
  close(listener_);
}

std::vector<std::string> LoopbackServer::requests() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return requests_;
}

size_t LoopbackServer::request_count() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return requests_.size();
}

void LoopbackServer::serve() {
  while (!stopping_) {
    int connection = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (connection < 0)
      continue;
    answer(connection);
    close(connection);
  }
}

void LoopbackServer::answer(int connection) {
  /* A silent client keeps the one serving thread at most this long. */
  const timeval timeout{5, 0};
  setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
  std::string request;
  size_t total = SIZE_MAX;
  char buffer[16384];
  while (request.size() < total) {
    ssize_t n = recv(connection, buffer, sizeof buffer, 0);
    if (n <= 0)
      break;
    request.append(buffer, size_t(n));
    size_t head_end = request.find("\r\n\r\n");
    if (total == SIZE_MAX && head_end != std::string::npos)
      total = head_end + 4 + content_length(request);
  }
  {
    std::lock_guard<std::mutex> lock(mutex_);
    requests_.push_back(request);
  }
  const std::string reply = respond_(request);
  for (size_t sent = 0; sent < reply.size();) {
    ssize_t n = send(connection, reply.data() + sent, reply.size() - sent,
                     MSG_NOSIGNAL);
    if (n < 0 && errno == EINTR)
      continue;
    if (n <= 0)
      break;
    sent += size_t(n);
  }
  shutdown(connection, SHUT_WR);
}

std::string http_reply(int status, const std::string &headers,
                       const std::string &body) {
  return "HTTP/1.1 " + std::to_string(status) + " Status\r\n" + headers +
         "Content-Length: " + std::to_string(body.size()) +
         "\r\nConnection: close\r\n\r\n" + body;
}

std::string request_head(const std::string &request) {
  return request.substr(0, request.find("\r\n\r\n"));
}

std::string request_body(const std::string &request) {
  size_t end = request.find("\r\n\r\n");
  return end == std::string::npos ? "" : request.substr(end + 4);
}

std::vector<std::string> request_lines(const std::string &request) {
  std::string head = request_head(request);
  std::vector<std::string> lines;
  size_t start = 0;
  for (;;) {
    size_t end = head.find("\r\n", start);
    lines.push_back(head.substr(start, end - start));
    if (end == std::string::npos)
      return lines;
    start = end + 2;
  }
}

int closed_port() {
  int port;
  close(bound_socket(port));
  return port;
}

std::string date_in_an_hour() {
  const time_t later = time(nullptr) + 3600;
  tm parts;
  gmtime_r(&later, &parts);
  char text[64];
  strftime(text, sizeof text, "%a, %d %b %Y %H:%M:%S GMT", &parts);
  return text;
}
