#include "Hex.h"

#include <cctype>

namespace lumo::test {

secureapp::Bytes fromHex(const std::string& digits) {
    std::string packed;
    for (const char digit : digits) {
        if (std::isspace(static_cast<unsigned char>(digit)) == 0) packed.push_back(digit);
    }
    secureapp::Bytes bytes;
    for (size_t i = 0; i + 1 < packed.size(); i += 2) {
        bytes.push_back(static_cast<uint8_t>(std::stoul(packed.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

std::string toHex(secureapp::ByteView bytes) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const uint8_t byte : bytes) {
        text.push_back(kDigits[byte >> 4]);
        text.push_back(kDigits[byte & 0xF]);
    }
    return text;
}

}  // namespace lumo::test
