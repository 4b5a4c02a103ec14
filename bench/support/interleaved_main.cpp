/* The main of the benchmarks that compare against a peer over the network:
 * cases run interleaved in random order, so that a slow spell of the shared
 * machine falls on both sides alike. */
#include <vector>

#include <benchmark/benchmark.h>

int main(int argc, char **argv) {
  static char interleave[] = "--benchmark_enable_random_interleaving=true";
  std::vector<char *> args(argv, argv + argc);
  args.insert(args.begin() + 1, interleave);
  int count = int(args.size());
  benchmark::Initialize(&count, args.data());
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
}
