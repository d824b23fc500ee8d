#include "Allocations.h"

#include <cstdlib>
#include <new>

namespace {

thread_local long until_failure = 0;  // 0 for none
thread_local bool failed = false;

bool failsNow() {
    if (until_failure == 0 || --until_failure != 0) return false;
    failed = true;
    return true;
}

}  // namespace

namespace lumo::faults {

void failAllocation(long n) {
    failed = false;
    until_failure = n;
}

bool allocationFailed() {
    until_failure = 0;
    return failed;
}

}  // namespace lumo::faults

#ifdef __SANITIZE_ADDRESS__

// The sanitizer owns malloc. What is compiled here reaches it by these names (the linker's --wrap),
// and C++ by the operators below; the shared libraries' own calls of malloc do not fail.
extern "C" {
void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __real_realloc(void* block, size_t size);
void* __wrap_malloc(size_t size);
void* __wrap_calloc(size_t count, size_t size);
void* __wrap_realloc(void* block, size_t size);

void* __wrap_malloc(size_t size) {
    return failsNow() ? nullptr : __real_malloc(size);
}
void* __wrap_calloc(size_t count, size_t size) {
    return failsNow() ? nullptr : __real_calloc(count, size);
}
void* __wrap_realloc(void* block, size_t size) {
    return failsNow() ? nullptr : __real_realloc(block, size);
}
}

void* operator new(size_t size) {
    if (failsNow()) throw std::bad_alloc();
    void* block = __real_malloc(size == 0 ? 1 : size);
    if (block == nullptr) throw std::bad_alloc();
    return block;
}
void* operator new(size_t size, const std::nothrow_t&) noexcept {
    return failsNow() ? nullptr : __real_malloc(size == 0 ? 1 : size);
}
void* operator new[](size_t size) {
    return operator new(size);
}
void* operator new[](size_t size, const std::nothrow_t& nothrow) noexcept {
    return operator new(size, nothrow);
}
void operator delete(void* block) noexcept {
    std::free(block);
}
void operator delete[](void* block) noexcept {
    std::free(block);
}
void operator delete(void* block, size_t) noexcept {
    std::free(block);
}
void operator delete[](void* block, size_t) noexcept {
    std::free(block);
}

#else

// The C library's own, under the names that it keeps for those who replace them: every allocation
// of the process comes here, libcrypto's too.
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);

void* malloc(size_t size);
void* calloc(size_t count, size_t size);
void* realloc(void* block, size_t size);

void* malloc(size_t size) {
    return failsNow() ? nullptr : __libc_malloc(size);
}
void* calloc(size_t count, size_t size) {
    return failsNow() ? nullptr : __libc_calloc(count, size);
}
void* realloc(void* block, size_t size) {
    return failsNow() ? nullptr : __libc_realloc(block, size);
}
}

#endif
