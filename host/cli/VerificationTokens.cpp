#include "VerificationTokens.h"

#include "Failure.h"
#include "Files.h"

namespace lumo::cli {

namespace {

using km::V4_0::VerificationToken;

constexpr size_t kMacBytes = 32;
constexpr size_t kTimestampOffset = 8;
constexpr size_t kLevelOffset = 16;
constexpr size_t kMacLengthOffset = 20;
constexpr size_t kMacOffset = 24;

void append(Bytes& bytes, uint64_t number, size_t width) {
    for (size_t i = 0; i < width; ++i) bytes.push_back(static_cast<uint8_t>(number >> (8 * i)));
}

uint64_t numberAt(const Bytes& bytes, size_t offset, size_t width) {
    uint64_t number = 0;
    for (size_t i = width; i-- > 0;) number = number << 8 | bytes[offset + i];
    return number;
}

}  // namespace

Bytes encodeVerificationToken(const VerificationToken& token) {
    Bytes bytes;
    append(bytes, token.challenge, sizeof(token.challenge));
    append(bytes, token.timestamp, sizeof(token.timestamp));
    append(bytes, static_cast<uint32_t>(token.securityLevel), sizeof(token.securityLevel));
    append(bytes, token.mac.size(), sizeof(uint32_t));
    bytes.insert(bytes.end(), token.mac.begin(), token.mac.end());
    return bytes;
}

void addVerificationToken(CLI::App& app, std::string& path) {
    app.add_option("--verification-token", path, "verification token, 56 bytes")->type_name("FILE");
}

VerificationToken readVerificationToken(const std::string& path) {
    VerificationToken token{};
    if (path.empty()) return token;
    const Bytes bytes = readSmallFile(path);
    if (bytes.size() != kMacOffset + kMacBytes ||
        numberAt(bytes, kMacLengthOffset, sizeof(uint32_t)) != kMacBytes) {
        throw Failure(Exit::usage, path + " is not a verification token: it needs " +
                                       std::to_string(kMacOffset + kMacBytes) +
                                       " bytes, the last " + std::to_string(kMacBytes) +
                                       " of them its MAC");
    }
    token.challenge = numberAt(bytes, 0, sizeof(token.challenge));
    token.timestamp = numberAt(bytes, kTimestampOffset, sizeof(token.timestamp));
    token.securityLevel = SecurityLevel{
        static_cast<uint32_t>(numberAt(bytes, kLevelOffset, sizeof(token.securityLevel)))};
    token.mac = HidlBytes(bytes.data() + kMacOffset, bytes.data() + bytes.size());
    return token;
}

}  // namespace lumo::cli
