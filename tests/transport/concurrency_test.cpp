/*
 * Eight threads at once, each with its own record, sending through one
 * loopback server and re-synchronising their clocks, while libcurl's global
 * initialisation is counted over the whole process: once. scripts/tsan-test
 * runs this under ThreadSanitizer.
 */
#include <atomic>
#include <dlfcn.h>
#include <set>
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
  using Function = CURLcode (*)(long);
  static const Function real =
      reinterpret_cast<Function>(dlsym(RTLD_NEXT, "curl_global_init"));
  return real(flags);
}

namespace {

/* Each thread's first round goes to /skewed, which is refused once with a
 * date an hour ahead; then the offset must have moved by that hour. */
void send_rounds(int thread, int port) {
  for (int round = 0; round < 10; ++round) {
    client_context_s context;
    client_context_init(&context);
    client_context_set_port(&context, port);
    client_context_set_user(&context, "user");
    client_context_set_token(&context, thread % 2 ? "token" : nullptr);
    const std::string body = std::to_string(thread * 10 + round);
    std::string out;
    EXPECT_EQ(send_request(&context, round ? "/echo" : "/skewed", body, &out),
              0);
    EXPECT_EQ(out, body);
    EXPECT_EQ(context.clock_offset, round ? 0 : 3600);
    client_context_clean(&context);
  }
}

TEST(Concurrency, ThreadsWithTheirOwnRecordsInitialiseLibcurlOnce) {
  /* Runs on the server's one thread: refuses each /skewed body once. */
  LoopbackServer server([seen = std::set<std::string>()](
                            const std::string &request) mutable {
    if (request.find(" /skewed ") != std::string::npos &&
        seen.insert(request_body(request)).second)
      return http_reply(
          401, "auth_error: 1\r\nDate: " + date_after(request, 3600) + "\r\n");
    return http_reply(200, "", request_body(request));
  });
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 8; ++thread)
    threads.emplace_back(send_rounds, thread, server.port());
  for (std::thread &thread : threads)
    thread.join();
  EXPECT_EQ(server.requests().size(), 8u * 11);
  EXPECT_EQ(global_init_calls.load(), 1);
}

} // namespace
