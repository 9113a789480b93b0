#include "bench/kit/plain.h"
BENCHMARK_MAIN();
