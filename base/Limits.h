// Limits that both wires share.
#pragma once

#include <cstddef>
#include <cstdint>

namespace keymasterdevice {

// The largest counts whose arrays a 32-bit device can address. A secure application that announces
// more gets KM_ERROR_MEMORY_ALLOCATION_FAILED on every host, as it does there.
inline constexpr uint32_t kMaxParams = 0x0FFFFFFF;
inline constexpr uint32_t kMaxCertificates = 0x1FFFFFFF;

// Input bytes of one update or finish, so that request and response fit the transport's buffers.
inline constexpr size_t kMaxInputBytes = 16384;

// The region that fixed-layout requests and responses share, in bytes.
inline constexpr uint32_t kSharedBufferBytes = 40960;

}  // namespace keymasterdevice
