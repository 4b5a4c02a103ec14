#include <atomic>
#include <dlfcn.h>
#include <thread>
#include <vector>

#include <curl/curl.h>
#include <gtest/gtest.h>

#include "transport_internal.h"
#include "velmora/transport.h"

namespace {
std::atomic<int> global_init_calls{0};
}

/* Interposed for the whole test program: counts the library's calls and
 * forwards them to libcurl. */
extern "C" CURLcode curl_global_init(long flags) {
  ++global_init_calls;
  using Function = CURLcode (*)(long);
  static Function real =
      reinterpret_cast<Function>(dlsym(RTLD_NEXT, "curl_global_init"));
  return real != nullptr ? real(flags) : CURLE_FAILED_INIT;
}

namespace {

TEST(GlobalInit, LibcurlIsInitialisedOnceAcrossThreads) {
  std::vector<std::thread> threads;
  std::atomic<bool> go{false};
  for (int t = 0; t < 8; ++t)
    threads.emplace_back([&go] {
      while (!go)
        std::this_thread::yield();
      for (int i = 0; i < 25; ++i) {
        client_context_s *context = client_context_new();
        client_context_s own;
        client_context_init(&own);
        client_context_clean(&own);
        client_context_free(context);
      }
    });
  go = true;
  for (std::thread &thread : threads)
    thread.join();
  EXPECT_EQ(global_init_calls.load(), 1);
  EXPECT_TRUE(velmora::global_init.initialized);
}

} // namespace
