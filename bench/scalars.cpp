/* Scalar envelopes against the same work written directly on jsoncpp, the
 * way a caller without this library would. */
#include <cstdio>
#include <cstdlib>
#include <string>

#include <benchmark/benchmark.h>
#include <json/value.h>

#include "velmora/values.h"

namespace {

const int64_t kLong = -1234567890123456789;

void BM_LongSerialize(benchmark::State &state) {
  void *cell = Long_new();
  Long_setValue(cell, kLong);
  for (auto _ : state) {
    Json::Value out;
    benchmark::DoNotOptimize(Long_serialize(cell, out));
  }
  Long_deleter(cell);
}

void BM_LongSerializePeer(benchmark::State &state) {
  for (auto _ : state) {
    Json::Value out;
    out["__type__"] = "Long";
    out["__value__"] = std::to_string(kLong);
    benchmark::DoNotOptimize(out);
  }
}

Json::Value long_envelope() {
  Json::Value in;
  in["__type__"] = "Long";
  in["__value__"] = std::to_string(kLong);
  return in;
}

void BM_LongDeserialize(benchmark::State &state) {
  Json::Value in = long_envelope();
  for (auto _ : state)
    Long_deleter(Long_deserialize(in));
}

void BM_LongDeserializePeer(benchmark::State &state) {
  Json::Value in = long_envelope();
  for (auto _ : state) {
    Long *cell = static_cast<Long *>(malloc(sizeof(Long)));
    cell->value = strtoll(in.get("__value__", Json::Value()).asString().c_str(),
                          nullptr, 10);
    benchmark::DoNotOptimize(cell);
    free(cell);
  }
}

void BM_DoubleSerialize(benchmark::State &state) {
  Double cell = {-12345.678901};
  for (auto _ : state) {
    Json::Value out;
    benchmark::DoNotOptimize(Double_serialize(&cell, out));
  }
}

void BM_DoubleSerializePeer(benchmark::State &state) {
  double number = -12345.678901;
  for (auto _ : state) {
    char text[32];
    snprintf(text, sizeof text, "%f", number);
    Json::Value out;
    out["__type__"] = "Double";
    out["__value__"] = text;
    benchmark::DoNotOptimize(out);
  }
}

} // namespace

BENCHMARK(BM_LongSerialize);
BENCHMARK(BM_LongSerializePeer);
BENCHMARK(BM_LongDeserialize);
BENCHMARK(BM_LongDeserializePeer);
BENCHMARK(BM_DoubleSerialize);
BENCHMARK(BM_DoubleSerializePeer);
BENCHMARK_MAIN();
