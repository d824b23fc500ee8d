// Memory from malloc on its way to a caller, who releases it with free.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>

namespace keymasterdevice {

struct FreeDelete {
    void operator()(void* memory) const { std::free(memory); }
};

using MallocedBytes = std::unique_ptr<uint8_t[], FreeDelete>;

}  // namespace keymasterdevice
