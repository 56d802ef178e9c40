// An `operator new` and `operator delete` for a whole test program.

#include "support/OwnAllocation.h"

#include <cstdlib>
#include <new>

namespace {

void* memoryFor(std::size_t size, std::size_t alignment = alignof(std::max_align_t)) {
    velora::test::allocationIsAsked(size);
    void* const memory = std::aligned_alloc(alignment, (size + alignment) / alignment * alignment);
    return memory == nullptr ? throw std::bad_alloc() : memory;
}

}  // namespace

void* operator new(std::size_t size) {
    return memoryFor(size);
}
void* operator new[](std::size_t size) {
    return memoryFor(size);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
    return memoryFor(size, static_cast<std::size_t>(alignment));
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
