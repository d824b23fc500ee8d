#include "Allocations.h"

#include <cstddef>

namespace {

thread_local uint64_t count = 0;

}  // namespace

namespace lumo::bench {

uint64_t allocations() {
    return count;
}

}  // namespace lumo::bench

// The C library's own, under the names that it keeps for those who replace them.
extern "C" {
void* __libc_malloc(size_t size);                // NOLINT(bugprone-reserved-identifier)
void* __libc_calloc(size_t count, size_t size);  // NOLINT(bugprone-reserved-identifier)
void* __libc_realloc(void* block, size_t size);  // NOLINT(bugprone-reserved-identifier)

void* malloc(size_t size);
void* calloc(size_t elements, size_t size);
void* realloc(void* block, size_t size);

void* malloc(size_t size) {
    ++count;
    return __libc_malloc(size);
}

void* calloc(size_t elements, size_t size) {
    ++count;
    return __libc_calloc(elements, size);
}

void* realloc(void* block, size_t size) {
    ++count;
    return __libc_realloc(block, size);
}
}
