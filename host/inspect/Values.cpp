#include "inspect/Values.h"

#include <cctype>

#include "inspect/Message.h"
#include "inspect/Parameters.h"

namespace lumo::inspect {

namespace {

bool isPrintable(uint8_t byte) {
    return byte >= 0x20 && byte < 0x7F;
}

}  // namespace

bool isUnknownValue(uint32_t tag, uint64_t value) {
    constexpr uint32_t kEnum = 1, kEnumRep = 2;  // types, in the upper four bits
    const bool enumeration = tag >> 28 == kEnum || tag >> 28 == kEnumRep;
    return enumeration && (value > UINT32_MAX || explainNumber(tag, value) == "unknown");
}

std::string hexText(Window bytes) {
    return toHex(ByteView(bytes.data(), bytes.size()));
}

std::optional<Bytes> bytesOfHex(const std::string& digits) {
    const bool all = std::all_of(digits.begin(), digits.end(), [](char digit) {
        return std::isxdigit(static_cast<unsigned char>(digit)) != 0;
    });
    if (!all || digits.size() % 2 != 0) return std::nullopt;
    Bytes bytes;
    for (size_t i = 0; i < digits.size(); i += 2) {
        bytes.push_back(static_cast<uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

std::string bytesText(Window bytes) {
    constexpr size_t kShown = 64;
    if (bytes.empty()) return "empty";
    const Window shown = bytes.sub(0, kShown);
    std::string text = std::all_of(shown.begin(), shown.end(), isPrintable)
                           ? '"' + std::string(shown.begin(), shown.end()) + '"'
                           : hexText(shown);
    if (shown.size() < bytes.size()) text += "... of " + std::to_string(bytes.size()) + " bytes";
    return text;
}

std::string printable(const std::string& text) {
    std::string shown;
    for (const char character : text) {
        const auto byte = static_cast<uint8_t>(character);
        shown += isPrintable(byte) ? std::string(1, character) : "\\x" + hexText(Window(&byte, 1));
    }
    return shown;
}

}  // namespace lumo::inspect
