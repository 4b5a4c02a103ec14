/* Request deadlines: a request must be whole within its time however its
 * bytes trickle in, since the event loop's own time-out is for silence and
 * restarts at every byte. */
#include <sys/socket.h>

#include "http.h"

namespace devserver {
namespace {

const auto watch_period = std::chrono::milliseconds(100);

/* The answer in the form of every other, written whole by one send:
 * nothing else writes to a connection still reading its request. */
void send_answer(int fd, const Response &res) {
  std::string text = "HTTP/1.1 408 Request Timeout\r\nConnection: close\r\n"
                     "Content-Length: " +
                     std::to_string(res.body.size()) + "\r\n";
  for (const auto &header : res.headers)
    text += header.first + ": " + header.second + "\r\n";
  text += "\r\n" + res.body;
  send(fd, text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
}

} // namespace

Links::Links(const Config &config, long seconds)
    : config_(config), limit_(std::chrono::seconds(seconds)),
      watcher_([this] { watch(); }) {}

Links::~Links() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
  }
  stop_.notify_all();
  watcher_.join();
}

Link *Links::open(int fd) {
  Link *link = new Link;
  link->fd = fd;
  std::lock_guard<std::mutex> lock(mutex_);
  link->since = Clock::now();
  links_.insert(link);
  return link;
}

void Links::close(Link *link) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    links_.erase(link);
  }
  delete link;
}

void Links::begin(Link *link, const char *target) {
  std::lock_guard<std::mutex> lock(mutex_);
  link->target = target;
  int waiting = Link::waiting;
  link->phase.compare_exchange_strong(waiting, Link::reading);
}

bool Links::take(Link *link) {
  int reading = Link::reading;
  return link->phase.compare_exchange_strong(reading, Link::answering);
}

void Links::done(Link *link) {
  std::lock_guard<std::mutex> lock(mutex_);
  link->since = Clock::now();
  int answering = Link::answering;
  link->phase.compare_exchange_strong(answering, Link::waiting);
}

/* Under the mutex. The shutdown makes the event loop close the connection.
 * The log line names the path only: a query may hold credentials. */
void Links::expire(Link *link) {
  int phase = link->phase;
  if (phase == Link::answering || phase == Link::expired ||
      !link->phase.compare_exchange_strong(phase, Link::expired))
    return;
  if (phase == Link::reading) {
    long seconds =
        std::chrono::duration_cast<std::chrono::seconds>(limit_).count();
    Request req;
    req.method = "-";
    req.path = link->target.substr(0, link->target.find('?'));
    Response res;
    answer_error(res, 408,
                 "request not whole within " + std::to_string(seconds) + " s");
    stamp_date(config_, res);
    send_answer(link->fd, res);
    log_request(config_, req, res);
  }
  shutdown(link->fd, SHUT_RDWR);
}

void Links::watch() {
  std::unique_lock<std::mutex> lock(mutex_);
  while (!stop_.wait_for(lock, watch_period, [this] { return stopping_; })) {
    Clock::time_point late = Clock::now() - limit_;
    for (Link *link : links_)
      if (link->since < late)
        expire(link);
  }
}

} // namespace devserver
