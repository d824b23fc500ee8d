#include "secureapp/access/SharedHmac.h"

#include <algorithm>
#include <string_view>

#include "secureapp/crypto/Crypto.h"

namespace lumo::secureapp {
namespace {

constexpr size_t kSeedBytes = 32;
constexpr size_t kNonceBytes = 32;
constexpr char kSeedRecord[] = "hmac-seed";

constexpr std::string_view kDerivationLabel = "KeymasterSharedMac";
constexpr std::string_view kCheckLabel = "Keymaster HMAC Verification";
constexpr std::string_view kVerificationLabel = "Auth Verification";
constexpr std::string_view kConfirmationLabel = "confirmation token";

// The auth token record, packed. The first three numbers are in the order of the hosts that the
// platform runs on, little-endian; the last two are big-endian.
constexpr uint8_t kAuthTokenVersion = 0;
constexpr size_t kChallengeOffset = 1;
constexpr size_t kUserIdOffset = 9;
constexpr size_t kAuthenticatorIdOffset = 17;
constexpr size_t kAuthenticatorTypeOffset = 25;
constexpr size_t kTimestampOffset = 29;
constexpr size_t kMacOffset = 37;
static_assert(kMacOffset + kSha256Bytes == kAuthTokenBytes, "published layout");

void append(Bytes& out, std::string_view text) {
    out.insert(out.end(), text.begin(), text.end());
}
void append(Bytes& out, ByteView bytes) {
    out.insert(out.end(), bytes.begin(), bytes.end());
}

void appendBig(Bytes& out, uint64_t value, size_t size) {
    for (size_t i = size; i-- > 0;) out.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

void appendLittle(Bytes& out, uint64_t value, size_t size) {
    for (size_t i = 0; i < size; ++i) out.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

uint64_t big(ByteView record, size_t offset, size_t size) {
    uint64_t value = 0;
    for (size_t i = 0; i < size; ++i) value = value << 8 | record[offset + i];
    return value;
}

uint64_t little64(ByteView record, size_t offset) {
    uint64_t value = 0;
    for (size_t i = sizeof(value); i-- > 0;) value = value << 8 | record[offset + i];
    return value;
}

bool hasRightSizes(const HmacSharingParameters& params) {
    return (params.seed.empty() || params.seed.size() == kSeedBytes) &&
           params.nonce.size() == kNonceBytes;
}

}  // namespace

SharedHmac::SharedHmac(State& own_state, State& shared_state, RandomSource& random,
                       keymaster_security_level_t level)
    : pre_shared_secret_(
          lastingSecret(shared_state, random, kSharedSecretRecord, kSecretRecordBytes)) {
    if (level == KM_SECURITY_LEVEL_STRONGBOX) {
        own_.seed = lastingSecret(own_state, random, kSeedRecord, kSeedBytes);
    }
    own_.nonce = random.bytes(kNonceBytes);
    key_ = derive({own_});
}

Bytes SharedHmac::agree(const std::vector<HmacSharingParameters>& all) {
    const auto is_own = [this](const HmacSharingParameters& params) {
        return params.seed == own_.seed && params.nonce == own_.nonce;
    };
    if (!std::all_of(all.begin(), all.end(), hasRightSizes) ||
        std::none_of(all.begin(), all.end(), is_own)) {
        refuse(KM_ERROR_INVALID_ARGUMENT);
    }
    key_ = derive(all);
    return sharingCheck(key_);
}

Bytes SharedHmac::derive(const std::vector<HmacSharingParameters>& all) const {
    return deriveSharedKey(pre_shared_secret_, all);
}

Bytes deriveSharedKey(ByteView pre_shared_secret, const std::vector<HmacSharingParameters>& all) {
    constexpr uint32_t kKeyBits = 256;
    constexpr uint32_t kBlocks = 2;  // of 128 bits, CMAC's output
    Bytes fixed_input;
    append(fixed_input, kDerivationLabel);
    fixed_input.push_back(0);
    for (const HmacSharingParameters& params : all) {
        append(fixed_input, params.seed);
        append(fixed_input, params.nonce);
    }
    appendBig(fixed_input, kKeyBits, sizeof(kKeyBits));

    Bytes key;
    for (uint32_t i = 1; i <= kBlocks; ++i) {
        Bytes input;
        appendBig(input, i, sizeof(i));
        append(input, fixed_input);
        append(key, aesCmac(pre_shared_secret, input));
    }
    return key;
}

Bytes sharingCheck(ByteView shared_key) {
    Bytes message;
    append(message, kCheckLabel);
    return hmacSha256(shared_key, message);
}

std::optional<AuthToken> openAuthToken(ByteView record, ByteView shared_key) {
    if (record.size() != kAuthTokenBytes || record[0] != kAuthTokenVersion) return std::nullopt;
    const Bytes mac = hmacSha256(shared_key, record.sub(0, kMacOffset));
    if (!equalSecret(mac, record.sub(kMacOffset))) return std::nullopt;

    AuthToken token;
    token.challenge = little64(record, kChallengeOffset);
    token.user_id = little64(record, kUserIdOffset);
    token.authenticator_id = little64(record, kAuthenticatorIdOffset);
    token.authenticator_type = static_cast<uint32_t>(
        big(record, kAuthenticatorTypeOffset, sizeof(token.authenticator_type)));
    token.timestamp = big(record, kTimestampOffset, sizeof(token.timestamp));
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
