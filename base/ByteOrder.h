// Integers at any address, aligned or not, in a given byte order.
#pragma once

#include <cstddef>
#include <cstdint>

namespace keymasterdevice {

inline uint32_t loadLe32(const uint8_t* bytes) {
    return uint32_t{bytes[0]} | uint32_t{bytes[1]} << 8 | uint32_t{bytes[2]} << 16 |
           uint32_t{bytes[3]} << 24;
}

inline uint64_t loadLe64(const uint8_t* bytes) {
    return uint64_t{loadLe32(bytes)} | uint64_t{loadLe32(bytes + 4)} << 32;
}

inline void storeLe32(uint8_t* bytes, uint32_t value) {
    for (unsigned i = 0; i < 4; ++i) bytes[i] = static_cast<uint8_t>(value >> (8 * i));
}

inline void storeBe32(uint8_t* bytes, uint32_t value) {
    for (unsigned i = 0; i < 4; ++i) bytes[i] = static_cast<uint8_t>(value >> (24 - 8 * i));
}

inline void storeBe64(uint8_t* bytes, uint64_t value) {
    storeBe32(bytes, static_cast<uint32_t>(value >> 32));
    storeBe32(bytes + 4, static_cast<uint32_t>(value));
}

}  // namespace keymasterdevice
