/* velmora-devserver's HTTP layer, shared between its files: the
 * connections the event loop holds, each with its request's deadline, and
 * the workers that answer whole requests. Waiting for a client costs a
 * connection and its buffers, never a thread. */
#ifndef VELMORA_DEVSERVER_HTTP_H
#define VELMORA_DEVSERVER_HTTP_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "devserver.h"

namespace devserver {

using Clock = std::chrono::steady_clock;

/* One client connection, from its opening to its close. */
struct Link {
  enum Phase { waiting, reading, answering, expired };
  int fd = -1;
  std::atomic<int> phase{waiting};
  /* Guarded by the Links' mutex: when the request's time began (the
   * opening, or the previous answer sent) and its target once known. */
  Clock::time_point since;
  std::string target;
};

/* Every open connection, and the watcher that ends a request not whole
 * within its time: 408 once its first line came, else a plain close. */
class Links {
public:
  Links(const Config &config, long seconds);
  ~Links();
  Link *open(int fd);
  void close(Link *link);
  /* The request's first line came. */
  void begin(Link *link, const char *target);
  /* The request is whole or answered early: false when it was too late. */
  bool take(Link *link);
  /* Its answer went out: the next request's time begins. */
  void done(Link *link);

private:
  void watch();
  void expire(Link *link);
  const Config &config_;
  const Clock::duration limit_;
  std::mutex mutex_;
  std::set<Link *> links_;
  std::condition_variable stop_;
  bool stopping_ = false;
  std::thread watcher_;
};

/* Threads that answer whole requests, started as they are needed, up to
 * `most`; past it requests wait their turn. */
class Workers {
public:
  explicit Workers(size_t most);
  ~Workers();
  void run(std::function<void()> job);
  /* Ends the threads once the queue is done; later jobs run in place. */
  void finish();

private:
  void work();
  const size_t most_;
  std::mutex mutex_;
  std::condition_variable ready_;
  std::deque<std::function<void()>> jobs_;
  std::vector<std::thread> threads_;
  size_t idle_ = 0;
  bool finished_ = false;
};

} // namespace devserver

#endif
