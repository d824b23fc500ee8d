// Keeps exceptions inside the device core.
#pragma once

#include <hardware/keymaster_defs.h>

#include <new>

namespace keymasterdevice {

// The result of `operation`, or KM_ERROR_MEMORY_ALLOCATION_FAILED when an allocation threw.
template <typename Operation>
keymaster_error_t withoutExceptions(Operation operation) {
    try {
        return operation();
    } catch (const std::bad_alloc&) {
        return KM_ERROR_MEMORY_ALLOCATION_FAILED;
    }
}

}  // namespace keymasterdevice
