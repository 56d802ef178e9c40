#pragma once

#include <cstddef>

/// Counts how often a program asks for memory that is linked with CountingAllocations.cpp and OwnAllocation.cpp.

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

}  // namespace velora::test
