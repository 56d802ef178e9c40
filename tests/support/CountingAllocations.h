#pragma once

#include <cstddef>

#include "support/OwnAllocation.h"

/// Counts how often the program asks for memory. For programs of one source file: this header replaces the
/// program's `operator new` and `operator delete`.

namespace velora::test {

/// A request for so many bytes or more is a huge one.
inline constexpr std::size_t hugeSize = 1'000'000;

/// How often a thread has asked for memory, and how often for a huge piece.
struct AllocationCounts {
    std::size_t all = 0;
    std::size_t huge = 0;
};

/// The calling thread's requests so far.
inline thread_local AllocationCounts allocationCounts;

/// How often `work` asks for memory on the calling thread.
template <typename Work>
AllocationCounts allocationsOf(Work work) {
    const AllocationCounts before = allocationCounts;
    work();
    return {.all = allocationCounts.all - before.all, .huge = allocationCounts.huge - before.huge};
}

inline void allocationIsAsked(std::size_t size) {
    ++allocationCounts.all;
    allocationCounts.huge += size >= hugeSize ? 1 : 0;
}

}  // namespace velora::test
