#include "secureapp/access/Tokens.h"

#include <string_view>

#include "secureapp/crypto/Digest.h"

namespace lumo::secureapp {
namespace {

constexpr std::string_view kVerificationLabel = "Auth Verification";
constexpr std::string_view kConfirmationLabel = "confirmation token";

// The auth token record, packed. The first three numbers are in host byte order, which is
// little-endian on every platform device; the last two are big-endian.
constexpr uint8_t kAuthTokenVersion = 0;
constexpr size_t kChallengeOffset = 1;
constexpr size_t kUserIdOffset = 9;
constexpr size_t kAuthenticatorIdOffset = 17;
constexpr size_t kAuthenticatorTypeOffset = 25;
constexpr size_t kTimestampOffset = 29;
constexpr size_t kMacOffset = 37;
static_assert(kMacOffset + kSha256Bytes == kAuthTokenBytes, "published layout");

}  // namespace

std::optional<AuthToken> openAuthToken(ByteView record, ByteView shared_key) {
    if (record.size() != kAuthTokenBytes || record[0] != kAuthTokenVersion) return std::nullopt;
    const Bytes mac = hmacSha256(shared_key, record.sub(0, kMacOffset));
    if (!equalSecret(mac, record.sub(kMacOffset))) return std::nullopt;

    AuthToken token;
    token.challenge = loadLittle(record.data() + kChallengeOffset, sizeof(token.challenge));
    token.user_id = loadLittle(record.data() + kUserIdOffset, sizeof(token.user_id));
    token.authenticator_id =
        loadLittle(record.data() + kAuthenticatorIdOffset, sizeof(token.authenticator_id));
    token.authenticator_type = static_cast<uint32_t>(
        loadBig(record.data() + kAuthenticatorTypeOffset, sizeof(token.authenticator_type)));
    token.timestamp = loadBig(record.data() + kTimestampOffset, sizeof(token.timestamp));
    return token;
}

Bytes makeAuthToken(const AuthToken& token, ByteView shared_key) {
    Bytes record = {kAuthTokenVersion};
    appendLittle(record, token.challenge, sizeof(token.challenge));
    appendLittle(record, token.user_id, sizeof(token.user_id));
    appendLittle(record, token.authenticator_id, sizeof(token.authenticator_id));
    appendBig(record, token.authenticator_type, sizeof(token.authenticator_type));
    appendBig(record, token.timestamp, sizeof(token.timestamp));
    append(record, hmacSha256(shared_key, record));
    return record;
}

Bytes verificationTokenMac(ByteView shared_key, uint64_t challenge, uint64_t timestamp,
                           uint32_t security_level) {
    Bytes message;
    append(message, kVerificationLabel);
    appendBig(message, challenge, sizeof(challenge));
    appendBig(message, timestamp, sizeof(timestamp));
    appendBig(message, security_level, sizeof(security_level));
    return hmacSha256(shared_key, message);
}

Bytes confirmationToken(ByteView shared_key, ByteView data) {
    Bytes message;
    append(message, kConfirmationLabel);
    append(message, data);
    return hmacSha256(shared_key, message);
}

}  // namespace lumo::secureapp
