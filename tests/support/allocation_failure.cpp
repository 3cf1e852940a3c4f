#include "tests/support/allocation_failure.h"

#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

// Per thread, so that a test's other threads are not hit.
thread_local std::int64_t allocationsUntilFailure = 0;  // 0: none fails

void* allocate(std::size_t size) noexcept {
    if (allocationsUntilFailure > 0 && --allocationsUntilFailure == 0) {
        return nullptr;
    }
    return std::malloc(size == 0 ? 1 : size);
}

void* allocateOrThrow(std::size_t size) {
    void* memory = allocate(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

}  // namespace

// The replacements serve the whole test program; without a failure in force they are plain malloc and free.
void* operator new(std::size_t size) {
    return allocateOrThrow(size);
}
void* operator new[](std::size_t size) {
    return allocateOrThrow(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return allocate(size);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete[](void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete(void* memory, const std::nothrow_t&) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, const std::nothrow_t&) noexcept {
    std::free(memory);
}

namespace tabulo::test {

AllocationFailure::AllocationFailure(std::int64_t n) {
    allocationsUntilFailure = n;
}

AllocationFailure::~AllocationFailure() {
    allocationsUntilFailure = 0;
}

}  // namespace tabulo::test
