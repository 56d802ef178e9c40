#pragma once

#include <benchmark/benchmark.h>

#include "support/Scratch.h"

namespace velora::bench {

/// How many keys the stores hold that are measured.
inline void storeSizes(benchmark::internal::Benchmark* benchmark) {
    benchmark->ArgName("keys")->Arg(35)->Arg(1'000);
    if (!isQuick()) {
        benchmark->Arg(10'000)->Arg(100'000);
    }
}

}  // namespace velora::bench
