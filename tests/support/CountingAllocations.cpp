#include "support/CountingAllocations.h"

#include "support/OwnAllocation.h"

namespace velora::test {

void allocationIsAsked(std::size_t size) {
    ++allocationCounts.all;
    allocationCounts.huge += size >= hugeSize ? 1 : 0;
}

}  // namespace velora::test
