#pragma once

#include <cstddef>
#include <cstdlib>
#include <new>

/// Gives the program an `operator new` and `operator delete` of its own, which call `velora::test::allocationIsAsked`
/// before each request. For programs of one source file, which define that: as inline where it is used often.

namespace velora::test {

/// Called with the number of bytes that are wanted. It may throw, as for want of memory.
void allocationIsAsked(std::size_t size);

inline void* memoryFor(std::size_t size, std::size_t alignment = alignof(std::max_align_t)) {
    allocationIsAsked(size);
    void* const memory = std::aligned_alloc(alignment, (size + alignment) / alignment * alignment);
    return memory == nullptr ? throw std::bad_alloc() : memory;
}

}  // namespace velora::test

// NOLINTBEGIN(misc-definitions-in-headers): replacements may not be inline
void* operator new(std::size_t size) {
    return velora::test::memoryFor(size);
}
void* operator new[](std::size_t size) {
    return velora::test::memoryFor(size);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
    return velora::test::memoryFor(size, static_cast<std::size_t>(alignment));
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete[](void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::align_val_t /*alignment*/) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t /*size*/, std::align_val_t /*alignment*/) noexcept {
    std::free(memory);
}
// NOLINTEND(misc-definitions-in-headers)
