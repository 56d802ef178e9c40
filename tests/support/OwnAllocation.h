#pragma once

#include <cstddef>

/// Declares what a test program with an `operator new` of its own, that of OwnAllocation.cpp, has to define.

namespace velora::test {

/// Called with the number of bytes that are wanted before each request for memory. It may throw, as for want of memory.
void allocationIsAsked(std::size_t size);

}  // namespace velora::test
