/* The workers that answer whole requests: a thread each while it answers,
 * kept for the next one, so that a delay or a hang holds one thread and
 * never the connections waiting on the event loop. */
#include "http.h"

namespace devserver {

Workers::Workers(size_t most) : most_(most) {}

Workers::~Workers() {
  finish();
}

void Workers::run(std::function<void()> job) {
  std::unique_lock<std::mutex> lock(mutex_);
  if (finished_) {
    lock.unlock();
    return job();
  }
  jobs_.push_back(std::move(job));
  if (jobs_.size() > idle_ && threads_.size() < most_)
    threads_.emplace_back([this] { work(); });
  else
    ready_.notify_one();
}

void Workers::finish() {
  std::vector<std::thread> threads;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    finished_ = true;
    threads.swap(threads_);
  }
  ready_.notify_all();
  for (std::thread &thread : threads)
    thread.join();
}

void Workers::work() {
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    idle_++;
    ready_.wait(lock, [this] { return finished_ || !jobs_.empty(); });
    idle_--;
    if (jobs_.empty())
      return;
    std::function<void()> job = std::move(jobs_.front());
    jobs_.pop_front();
    lock.unlock();
    job();
    lock.lock();
  }
}

} // namespace devserver
