// Keeps std::bad_alloc, the only exception that the device core meets, inside it.
#pragma once

#include <hardware/keymaster_defs.h>

#include <new>

namespace keymasterdevice {

// The result of `operation`, or KM_ERROR_MEMORY_ALLOCATION_FAILED when an allocation threw.
template <typename Operation>
[[nodiscard]] keymaster_error_t catchBadAlloc(Operation operation) {
    try {
        return operation();
    } catch (const std::bad_alloc&) {
        return KM_ERROR_MEMORY_ALLOCATION_FAILED;
    }
}

}  // namespace keymasterdevice
