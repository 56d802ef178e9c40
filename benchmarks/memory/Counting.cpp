#include "memory/Counting.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::int64_t> calls = 0;

}  // namespace

std::int64_t velora::bench::allocations() {
    return calls;
}

// The forms for arrays and without exceptions end up here, too.
void* operator new(std::size_t size) {
    ++calls;
    void* const memory = std::malloc(size == 0 ? 1 : size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void* operator new(std::size_t size, std::align_val_t alignment) {
    ++calls;
    const auto boundary = static_cast<std::size_t>(alignment);
    void* const memory = std::aligned_alloc(boundary, (size + boundary - 1) / boundary * boundary);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::align_val_t /*alignment*/) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t /*size*/, std::align_val_t /*alignment*/) noexcept {
    std::free(memory);
}
