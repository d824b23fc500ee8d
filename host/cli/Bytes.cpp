#include "Bytes.h"

namespace lumo::cli {

namespace {

constexpr char kDigits[] = "0123456789abcdef";

int digitValue(char digit) {
    if (digit >= '0' && digit <= '9') return digit - '0';
    if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
    if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
    return -1;
}

}  // namespace

std::string toHex(const Bytes& bytes) {
    std::string text;
    text.reserve(2 * bytes.size());
    for (const uint8_t byte : bytes) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 0xF];
    }
    return text;
}

std::optional<Bytes> fromHex(const std::string& text) {
    if (text.size() % 2 != 0) return std::nullopt;
    Bytes bytes;
    bytes.reserve(text.size() / 2);
    for (size_t i = 0; i < text.size(); i += 2) {
        const int high = digitValue(text[i]);
        const int low = digitValue(text[i + 1]);
        if (high < 0 || low < 0) return std::nullopt;
        bytes.push_back(static_cast<uint8_t>(high << 4 | low));
    }
    return bytes;
}

}  // namespace lumo::cli
