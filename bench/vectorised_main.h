// The start of a benchmark program that measures the library's own paths:
// the vectorised kernels selected first, as an opened device has them.
#pragma once

#include <benchmark/benchmark.h>

#include "ippcore.h"

// Runs the benchmarks the command line selects; false for an argument the
// framework does not know.
inline bool RunVectorisedBenchmarks(int* argc, char** argv) {
    ippInit();
    benchmark::Initialize(argc, argv);
    if (benchmark::ReportUnrecognizedArguments(*argc, argv)) return false;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return true;
}
