/* Digests and Base64 beside OpenSSL's equivalents, in the same run. */
#include <benchmark/benchmark.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/sha.h>

#include <cstdlib>
#include <random>
#include <string>

#include "../digest/digest_internal.h"
#include "velmora/digest.h"

namespace {

std::string random_bytes(size_t count) {
  std::mt19937 rng(42);
  std::string bytes(count, '\0');
  for (char &c : bytes)
    c = static_cast<char>(rng());
  return bytes;
}

void sha1_velmora(benchmark::State &state) {
  const std::string data = random_bytes(size_t(state.range(0)));
  for (auto _ : state) {
    uint8_t *digest = sha1_hash(data.data(), data.size());
    benchmark::DoNotOptimize(digest);
    free(digest);
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * state.range(0));
}

void sha1_velmora_portable(benchmark::State &state) {
  velmora::sha1_force_portable(true);
  sha1_velmora(state);
  velmora::sha1_force_portable(false);
}

void sha1_openssl(benchmark::State &state) {
  const std::string data = random_bytes(size_t(state.range(0)));
  unsigned char digest[SHA_DIGEST_LENGTH];
  for (auto _ : state) {
    SHA1(reinterpret_cast<const unsigned char *>(data.data()), data.size(),
         digest);
    benchmark::DoNotOptimize(digest);
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * state.range(0));
}

void hmac_velmora(benchmark::State &state) {
  const std::string key = random_bytes(20);
  const std::string data = random_bytes(size_t(state.range(0)));
  char out[20];
  for (auto _ : state) {
    hmac_sha(key.data(), int(key.size()), data.data(), int(data.size()), out,
             20);
    benchmark::DoNotOptimize(out);
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * state.range(0));
}

void hmac_openssl(benchmark::State &state) {
  const std::string key = random_bytes(20);
  const std::string data = random_bytes(size_t(state.range(0)));
  unsigned char out[20];
  unsigned int out_length = 0;
  for (auto _ : state) {
    HMAC(EVP_sha1(), key.data(), int(key.size()),
         reinterpret_cast<const unsigned char *>(data.data()), data.size(), out,
         &out_length);
    benchmark::DoNotOptimize(out);
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * state.range(0));
}

void base64_encode_velmora(benchmark::State &state) {
  const std::string data = random_bytes(size_t(state.range(0)));
  for (auto _ : state) {
    std::string text = base64_encode(data.data(), unsigned(data.size()));
    benchmark::DoNotOptimize(text.data());
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * state.range(0));
}

/* Given the same output allocation per call as base64_encode. */
void base64_encode_openssl(benchmark::State &state) {
  const std::string data = random_bytes(size_t(state.range(0)));
  for (auto _ : state) {
    std::string text((data.size() + 2) / 3 * 4 + 1, '\0');
    EVP_EncodeBlock(reinterpret_cast<unsigned char *>(&text[0]),
                    reinterpret_cast<const unsigned char *>(data.data()),
                    int(data.size()));
    benchmark::DoNotOptimize(text.data());
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * state.range(0));
}

std::string encoded(size_t bytes) {
  const std::string data = random_bytes(bytes);
  return base64_encode(data.data(), unsigned(data.size()));
}

void base64_decode_velmora(benchmark::State &state) {
  const std::string text = encoded(size_t(state.range(0)));
  for (auto _ : state) {
    char *out = nullptr;
    int length = 0;
    base64_decode(text, &out, length);
    benchmark::DoNotOptimize(out);
    free(out);
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * state.range(0));
}

void base64_decode_openssl(benchmark::State &state) {
  const std::string text = encoded(size_t(state.range(0)));
  for (auto _ : state) {
    unsigned char *out = static_cast<unsigned char *>(malloc(text.size()));
    EVP_DecodeBlock(out, reinterpret_cast<const unsigned char *>(text.data()),
                    int(text.size()));
    benchmark::DoNotOptimize(out);
    free(out);
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * state.range(0));
}

/* `run` with every Base64 call sent to `path`; an error row when the CPU
 * lacks it. */
void on_path(velmora::Base64Path path, void (*run)(benchmark::State &),
             benchmark::State &state) {
  if (!velmora::base64_force(path)) {
    state.SkipWithError("the CPU lacks this path");
    return;
  }
  run(state);
  velmora::base64_force(velmora::Base64Path::best);
}

void base64_encode_velmora_scalar(benchmark::State &state) {
  on_path(velmora::Base64Path::scalar, base64_encode_velmora, state);
}

void base64_encode_velmora_avx2(benchmark::State &state) {
  on_path(velmora::Base64Path::avx2, base64_encode_velmora, state);
}

void base64_encode_velmora_avx512(benchmark::State &state) {
  on_path(velmora::Base64Path::avx512, base64_encode_velmora, state);
}

void base64_decode_velmora_scalar(benchmark::State &state) {
  on_path(velmora::Base64Path::scalar, base64_decode_velmora, state);
}

void base64_decode_velmora_avx2(benchmark::State &state) {
  on_path(velmora::Base64Path::avx2, base64_decode_velmora, state);
}

void base64_decode_velmora_avx512(benchmark::State &state) {
  on_path(velmora::Base64Path::avx512, base64_decode_velmora, state);
}

constexpr int64_t kMiB = 1 << 20;

/* Other work on the machine skews single runs: report medians of five. */
void steady(benchmark::internal::Benchmark *b) {
  b->Repetitions(5)->ReportAggregatesOnly(true);
}

BENCHMARK(sha1_velmora)->Arg(64)->Arg(1024)->Arg(kMiB)->Apply(steady);
BENCHMARK(sha1_openssl)->Arg(64)->Arg(1024)->Arg(kMiB)->Apply(steady);
BENCHMARK(sha1_velmora_portable)->Arg(kMiB)->Apply(steady);
BENCHMARK(hmac_velmora)->Arg(64)->Apply(steady);
BENCHMARK(hmac_openssl)->Arg(64)->Apply(steady);
/* Unforced rows take the path the CPU supports best. */
BENCHMARK(base64_encode_velmora)->Arg(64)->Arg(kMiB)->Apply(steady);
BENCHMARK(base64_encode_velmora_scalar)->Arg(64)->Arg(kMiB)->Apply(steady);
BENCHMARK(base64_encode_velmora_avx2)->Arg(64)->Arg(kMiB)->Apply(steady);
BENCHMARK(base64_encode_velmora_avx512)->Arg(64)->Arg(kMiB)->Apply(steady);
BENCHMARK(base64_encode_openssl)->Arg(64)->Arg(kMiB)->Apply(steady);
BENCHMARK(base64_decode_velmora)->Arg(64)->Arg(kMiB)->Apply(steady);
BENCHMARK(base64_decode_velmora_scalar)->Arg(64)->Arg(kMiB)->Apply(steady);
BENCHMARK(base64_decode_velmora_avx2)->Arg(64)->Arg(kMiB)->Apply(steady);
BENCHMARK(base64_decode_velmora_avx512)->Arg(64)->Arg(kMiB)->Apply(steady);
BENCHMARK(base64_decode_openssl)->Arg(64)->Arg(kMiB)->Apply(steady);

} // namespace

BENCHMARK_MAIN();
