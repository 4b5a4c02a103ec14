/* The main of the benchmarks that compare against a peer over the network:
 * cases run interleaved in random order, so that a slow spell of the shared
 * machine falls on both sides alike. */
#include <vector>

#include <benchmark/benchmark.h>

/* A benchmark program that runs itself again for a case defines this: it
 * returns the exit status of such a run, or -1 in the run of the cases. */
extern "C" int velmora_bench_rerun() __attribute__((weak));

int main(int argc, char **argv) {
  int rerun = velmora_bench_rerun == nullptr ? -1 : velmora_bench_rerun();
  if (rerun >= 0)
    return rerun;
  static char interleave[] = "--benchmark_enable_random_interleaving=true";
  std::vector<char *> args(argv, argv + argc);
  args.insert(args.begin() + 1, interleave);
  int count = int(args.size());
  benchmark::Initialize(&count, args.data());
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
}
