#include "tests/support/allocation_failure.h"

#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

// Per thread, so that a test's other threads are not hit.
thread_local std::int64_t allocationsUntilFailure = 0;  // 0: none fails
thread_local bool failureGoesOn = false;
thread_local bool failureHappened = false;
thread_local std::int64_t liveCount = 0;

void* allocate(std::size_t size) noexcept {
    if ((failureHappened && failureGoesOn) || (allocationsUntilFailure > 0 && --allocationsUntilFailure == 0)) {
        failureHappened = true;
        return nullptr;
    }
    void* memory = std::malloc(size == 0 ? 1 : size);
    liveCount += memory != nullptr ? 1 : 0;
    return memory;
}

void release(void* memory) noexcept {
    liveCount -= memory != nullptr ? 1 : 0;
    std::free(memory);
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
    release(memory);
}
void operator delete[](void* memory) noexcept {
    release(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    release(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    release(memory);
}
void operator delete(void* memory, const std::nothrow_t&) noexcept {
    release(memory);
}
void operator delete[](void* memory, const std::nothrow_t&) noexcept {
    release(memory);
}

namespace tabulo::internal::test {

AllocationFailure::AllocationFailure(std::int64_t n) : AllocationFailure(n, false) {
}

AllocationFailure::AllocationFailure(std::int64_t n, bool goesOn) {
    allocationsUntilFailure = n;
    failureGoesOn = goesOn;
    failureHappened = false;
}

AllocationFailure::~AllocationFailure() {
    allocationsUntilFailure = 0;
    failureGoesOn = false;
    failureHappened = false;
}

bool AllocationFailure::happened() const {
    return failureHappened;
}

std::int64_t liveAllocations() {
    return liveCount;
}

}  // namespace tabulo::internal::test
