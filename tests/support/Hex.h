// Bytes from hexadecimal digits and back.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace lumo::test {

// Whitespace between the digits is skipped.
std::vector<uint8_t> fromHex(const std::string& digits);
std::string toHex(const void* bytes, size_t size);
inline std::string toHex(const std::vector<uint8_t>& bytes) {
    return toHex(bytes.data(), bytes.size());
}

}  // namespace lumo::test
