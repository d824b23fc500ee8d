// Bytes as the client holds them, and as hexadecimal text.
#pragma once

#include <hidl/HidlSupport.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace lumo::cli {

using Bytes = std::vector<uint8_t>;
using HidlBytes = ::android::hardware::hidl_vec<uint8_t>;

// Lower case, two digits a byte.
std::string toHex(const Bytes& bytes);

// Nothing if the text is not an even number of hexadecimal digits.
std::optional<Bytes> fromHex(const std::string& text);

}  // namespace lumo::cli
