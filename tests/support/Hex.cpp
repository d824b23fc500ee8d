#include "Hex.h"

#include <cctype>

namespace lumo::test {

std::vector<uint8_t> fromHex(const std::string& digits) {
    std::string packed;
    for (const char digit : digits) {
        if (std::isspace(static_cast<unsigned char>(digit)) == 0) packed.push_back(digit);
    }
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i + 1 < packed.size(); i += 2) {
        bytes.push_back(static_cast<uint8_t>(std::stoul(packed.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

std::string toHex(const void* bytes, size_t size) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (size_t i = 0; i < size; ++i) {
        const uint8_t byte = static_cast<const uint8_t*>(bytes)[i];
        text += {kDigits[byte >> 4], kDigits[byte & 0xF]};
    }
    return text;
}

}  // namespace lumo::test
