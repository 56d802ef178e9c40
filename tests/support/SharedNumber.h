#pragma once

#include <atomic>
#include <new>
#include <sys/mman.h>

namespace velora::test {

/// A number that a process shares with the children it forks.
class SharedNumber {
public:
    SharedNumber()
        : memory_(::mmap(nullptr, sizeof(std::atomic<int>), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)),
          number_(new (memory_) std::atomic<int>(0)) {}
    SharedNumber(const SharedNumber&) = delete;
    SharedNumber& operator=(const SharedNumber&) = delete;
    ~SharedNumber() { ::munmap(memory_, sizeof(std::atomic<int>)); }
    std::atomic<int>& operator*() const { return *number_; }

private:
    void* memory_;
    std::atomic<int>* number_;
};

}  // namespace velora::test
