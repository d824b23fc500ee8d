// Keys of file-based encryption, which the secure-world driver holds.
#pragma once

#include <cstddef>
#include <cstdint>

namespace keymasterdevice {

constexpr size_t kFbeKeyBytes = 64;

// Asks the driver to forget a key of kFbeKeyBytes. By design a failure is only logged.
void clearFbeKey(const uint8_t* key);

}  // namespace keymasterdevice
