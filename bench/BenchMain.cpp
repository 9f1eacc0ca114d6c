// One benchmark binary for the whole kernel; see README for how to run it.
#include <benchmark/benchmark.h>

BENCHMARK_MAIN();
