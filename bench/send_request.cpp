/*
 * Signed requests through send_request against the same requests sent
 * through plain libcurl with the same options and fixed header lines of the
 * same length, both to one loopback server in the same run. Each iteration
 * is one request on a new handle, as send_request makes it.
 */
#include <string>

#include <benchmark/benchmark.h>
#include <curl/curl.h>

#include "loopback_server.h"
#include "velmora/transport.h"

namespace {

const std::string body =
    "{\"__type__\":\"ListInfo\",\"__properties__\":{\"limit\":{\"__type__\":"
    "\"Integer\",\"__value__\":50},\"offset\":{\"__type__\":\"Integer\","
    "\"__value__\":100},\"search_parameters\":{\"__type__\":\"Unicode\","
    "\"__value__\":\"name=velmora\"}}}";
const std::string reply_body = "{\"__type__\":\"Integer\",\"__value__\":1}";

LoopbackServer &server() {
  static LoopbackServer instance({http_reply(200, "", reply_body)});
  return instance;
}

size_t append(char *data, size_t size, size_t count, void *sink) {
  static_cast<std::string *>(sink)->append(data, size * count);
  return size * count;
}

void BM_send_request_signed(benchmark::State &state) {
  client_context_s *context = client_context_new();
  client_context_set_port(context, server().port());
  client_context_set_user(context, "bench-user");
  client_context_set_password(context, "bench-password");
  client_context_set_auth_key(context, "0123456789abcdef");
  std::string out;
  for (auto _ : state) {
    if (send_request(context, "/service/list", body, &out) != 0)
      state.SkipWithError("request failed");
    benchmark::DoNotOptimize(out.data());
  }
  client_context_free(context);
}

void BM_plain_libcurl(benchmark::State &state) {
  const std::string url =
      "http://127.0.0.1:" + std::to_string(server().port()) + "/service/list";
  std::string out;
  for (auto _ : state) {
    CURL *curl = curl_easy_init();
    curl_slist *headers = nullptr;
    headers = curl_slist_append(headers, "Date:Sun, 22 Nov 2026 20:47:46 UTC");
    headers = curl_slist_append(
        headers, "AUTHENTICATION:HMAC-SHA1-DATE YmVuY2gtdXNlcg==:"
                 "+e6gNhxUEl2da/BYMVOAMf/CXzc=");
    headers = curl_slist_append(headers, "LOCAL_AUTH_KEY: 0123456789abcdef");
    headers = curl_slist_append(headers, "Expect:");
    char error[CURL_ERROR_SIZE];
    error[0] = '\0';
    std::string body_sink, header_sink;
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, error);
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_HEADER, 0L);
    curl_easy_setopt(curl, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, append);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &body_sink);
    curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, append);
    curl_easy_setopt(curl, CURLOPT_HEADERDATA, &header_sink);
    curl_easy_setopt(curl, CURLOPT_POST, 1L);
    curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.data());
    curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE, long(body.size()));
    CURLcode code = curl_easy_perform(curl);
    curl_slist_free_all(headers);
    long status = 0;
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
    curl_easy_cleanup(curl);
    if (code != CURLE_OK || status != 200)
      state.SkipWithError("request failed");
    out = std::move(body_sink);
    benchmark::DoNotOptimize(out.data());
  }
}

/* Rounds of the two run interleaved in random order (see main), so that
 * the machine's drift falls on both; compare the medians. */
BENCHMARK(BM_plain_libcurl)
    ->Iterations(2000)
    ->Repetitions(9)
    ->ReportAggregatesOnly(true)
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_send_request_signed)
    ->Iterations(2000)
    ->Repetitions(9)
    ->ReportAggregatesOnly(true)
    ->Unit(benchmark::kMicrosecond);

} // namespace
