#include "loopback_server.h"

#include <algorithm>
#include <arpa/inet.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

/* The whole request's length once its head has arrived, else npos. The
 * length header is looked for in libcurl's spelling. */
size_t request_size(const std::string &request) {
  const size_t head = request.find("\r\n\r\n");
  const size_t length = request.find("\r\nContent-Length: ");
  if (head == std::string::npos)
    return head;
  return head + 4 +
         (length < head ? std::stoul(request.substr(length + 18)) : 0);
}

} // namespace

/* Binds an ephemeral port of 127.0.0.1 before the serving thread starts. */
LoopbackServer::LoopbackServer(std::vector<std::string> replies, long lead)
    : replies_(std::move(replies)), lead_(lead),
      listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  sockaddr *raw = reinterpret_cast<sockaddr *>(&address);
  if (bind(listener_, raw, length) != 0 || listen(listener_, 64) != 0 ||
      getsockname(listener_, raw, &length) != 0)
    throw std::runtime_error("cannot listen on a loopback socket");
  port_ = ntohs(address.sin_port);
  thread_ = std::thread([this] { serve(); });
}

/* Shutting the listener down makes the waiting accept fail at once. */
LoopbackServer::~LoopbackServer() {
  shutdown(listener_, SHUT_RDWR);
  thread_.join();
  close(listener_);
}

std::vector<std::string> LoopbackServer::requests() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return requests_;
}

/* One connection at a time; a silent client holds it at most 5 s. */
void LoopbackServer::serve() {
  const timeval timeout{5, 0};
  for (int connection; (connection = accept4(listener_, nullptr, nullptr,
                                             SOCK_CLOEXEC)) >= 0;) {
    setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
    std::string request;
    char buffer[16384];
    for (ssize_t n; request.size() < request_size(request) &&
                    (n = recv(connection, buffer, sizeof buffer, 0)) > 0;)
      request.append(buffer, size_t(n));
    const std::string reply = reply_to(request);
    send(connection, reply.data(), reply.size(), MSG_NOSIGNAL);
    close(connection);
  }
}

/* Records the request; runs on the serving thread only. */
std::string LoopbackServer::reply_to(const std::string &request) {
  std::lock_guard<std::mutex> lock(mutex_);
  requests_.push_back(request);
  std::string reply = replies_[std::min(requests_.size(), replies_.size()) - 1];
  const size_t at = reply.find('@');
  return at == std::string::npos
             ? reply
             : reply.replace(at, 1, date_after(request, lead_));
}

std::string http_reply(int status, const std::string &headers,
                       const std::string &body) {
  return "HTTP/1.1 " + std::to_string(status) + " Status\r\n" + headers +
         "Content-Length: " + std::to_string(body.size()) +
         "\r\nConnection: close\r\n\r\n" + body;
}
