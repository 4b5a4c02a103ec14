/*
 * Eight threads at once, each with its own records, sending through one
 * loopback server, one of them re-synchronising its clock, while libcurl's
 * global initialisation is counted over the whole process: once.
 * scripts/tsan-test runs this under ThreadSanitizer.
 */
#include <atomic>
#include <dlfcn.h>
#include <thread>
#include <vector>

#include <curl/curl.h>
#include <gtest/gtest.h>

#include "loopback_server.h"
#include "velmora/transport.h"

namespace {
std::atomic<int> global_init_calls{0};
}

/* Interposed for the whole test program: counts the library's calls and
 * forwards them to libcurl. */
extern "C" CURLcode curl_global_init(long flags) {
  ++global_init_calls;
  static const auto real = reinterpret_cast<CURLcode (*)(long)>(
      dlsym(RTLD_NEXT, "curl_global_init"));
  return real(flags);
}

namespace {

/* The first request to arrive is refused with a date an hour ahead. */
TEST(Concurrency, ThreadsWithTheirOwnRecordsInitialiseLibcurlOnce) {
  LoopbackServer server({http_reply(401, "auth_error: 1\r\nDate: @\r\n"),
                         http_reply(200, "", "ok")},
                        3600);
  std::atomic<int64_t> offsets{0};
  std::vector<std::thread> threads;
  /* Ten rounds a thread, each on a fresh record in the thread's own storage;
   * half the threads sign with a token. */
  for (int thread = 0; thread < 8; ++thread)
    threads.emplace_back([&, thread] {
      for (int round = 0; round < 10; ++round) {
        client_context_s context;
        client_context_init(&context);
        client_context_set_port(&context, server.port());
        client_context_set_user(&context, "user");
        client_context_set_token(&context, thread % 2 ? "token" : nullptr);
        std::string out;
        EXPECT_EQ(send_request(&context, "/p", std::to_string(round), &out), 0);
        EXPECT_EQ(out, "ok");
        offsets += context.clock_offset;
        client_context_clean(&context);
      }
    });
  for (std::thread &thread : threads)
    thread.join();
  EXPECT_EQ(server.requests().size(), 8u * 10 + 1);
  EXPECT_EQ(offsets.load(), 3600);
  EXPECT_EQ(global_init_calls.load(), 1);
}

} // namespace
