#include "Allocations.h"

#include <malloc.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

struct Countdown {
    uint32_t left = 0;  // the one that brings it to 0 fails
    bool counting = false;
    bool failed = false;
};
thread_local Countdown countdown;

bool fails() {
    if (!countdown.counting || countdown.left == 0 || --countdown.left != 0) return false;
    countdown.failed = true;
    return true;
}

}  // namespace

namespace lumo::fuzz {

FailingAllocation::FailingAllocation(uint32_t nth) {
    countdown = {nth, nth != 0, false};
}

FailingAllocation::~FailingAllocation() {
    countdown = {};
}

bool FailingAllocation::happened() const {
    return countdown.failed;
}

AllocationsSucceed::AllocationsSucceed() : before_(countdown.counting) {
    countdown.counting = false;
}

AllocationsSucceed::~AllocationsSucceed() {
    countdown.counting = before_;
}

}  // namespace lumo::fuzz

// The names that the linker's --wrap makes of the C++ ABI's. LUMO_SIZE_LETTER is how that ABI
// writes size_t: m with 64 bits, j with 32.
#define LUMO_SYMBOL_OF(prefix, operation, letter, rest) prefix operation #letter rest
#define LUMO_SYMBOL(prefix, operation, letter, rest) LUMO_SYMBOL_OF(prefix, operation, letter, rest)
#define LUMO_WRAP(operation, rest) asm(LUMO_SYMBOL("__wrap_", operation, LUMO_SIZE_LETTER, rest))
#define LUMO_REAL(operation, rest) asm(LUMO_SYMBOL("__real_", operation, LUMO_SIZE_LETTER, rest))

extern "C" {

void* wrappedMalloc(size_t size) asm("__wrap_malloc");
void* realMalloc(size_t size) asm("__real_malloc");
void* wrappedNew(size_t size) LUMO_WRAP("_Znw", "");
void* realNew(size_t size) LUMO_REAL("_Znw", "");
void* wrappedNewArray(size_t size) LUMO_WRAP("_Zna", "");
void* realNewArray(size_t size) LUMO_REAL("_Zna", "");
void* wrappedNewOrNull(size_t size, const std::nothrow_t& tag) LUMO_WRAP("_Znw", "RKSt9nothrow_t");
void* realNewOrNull(size_t size, const std::nothrow_t& tag) LUMO_REAL("_Znw", "RKSt9nothrow_t");
void* wrappedNewArrayOrNull(size_t size, const std::nothrow_t& tag)
    LUMO_WRAP("_Zna", "RKSt9nothrow_t");
void* realNewArrayOrNull(size_t size, const std::nothrow_t& tag)
    LUMO_REAL("_Zna", "RKSt9nothrow_t");

void* wrappedMalloc(size_t size) {
    return fails() ? nullptr : realMalloc(size);
}

void* wrappedNew(size_t size) {
    if (fails()) throw std::bad_alloc();
    return realNew(size);
}

void* wrappedNewArray(size_t size) {
    if (fails()) throw std::bad_alloc();
    return realNewArray(size);
}

void* wrappedNewOrNull(size_t size, const std::nothrow_t& tag) {
    return fails() ? nullptr : realNewOrNull(size, tag);
}

void* wrappedNewArrayOrNull(size_t size, const std::nothrow_t& tag) {
    return fails() ? nullptr : realNewArrayOrNull(size, tag);
}

// BoringSSL calls these three where a program has them; what is freed is wiped first.
void* OPENSSL_memory_alloc(size_t size);
void OPENSSL_memory_free(void* memory);
size_t OPENSSL_memory_get_size(void* memory);

void* OPENSSL_memory_alloc(size_t size) {
    return fails() ? nullptr : realMalloc(size);
}

void OPENSSL_memory_free(void* memory) {
    if (memory == nullptr) return;
    std::memset(memory, 0, malloc_usable_size(memory));
    std::free(memory);
}

size_t OPENSSL_memory_get_size(void* memory) {
    return malloc_usable_size(memory);
}

}  // extern "C"
