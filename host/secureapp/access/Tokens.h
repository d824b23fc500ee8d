// The tokens that the shared HMAC key authenticates.
#pragma once

#include <optional>

#include "secureapp/base/Bytes.h"

namespace lumo::secureapp {

// The 69-byte hardware auth token.
struct AuthToken {
    uint64_t challenge = 0;
    uint64_t user_id = 0;
    uint64_t authenticator_id = 0;
    uint32_t authenticator_type = 0;
    uint64_t timestamp = 0;  // milliseconds since boot
};
constexpr size_t kAuthTokenBytes = 69;

// nullopt when the record is not a valid token under `shared_key`: wrong size, version or MAC.
std::optional<AuthToken> openAuthToken(ByteView record, ByteView shared_key);
// The record of a token, with its MAC; authenticators make these.
Bytes makeAuthToken(const AuthToken& token, ByteView shared_key);

// What one instance confirms to another.
struct VerificationToken {
    uint64_t challenge = 0;
    uint64_t timestamp = 0;  // milliseconds since boot
    uint32_t security_level = 0;
    Bytes mac;
};

// The MAC of a verification token without parameters.
Bytes verificationTokenMac(ByteView shared_key, uint64_t challenge, uint64_t timestamp,
                           uint32_t security_level);

// The MAC over the data of a confirmed signature.
Bytes confirmationToken(ByteView shared_key, ByteView data);

}  // namespace lumo::secureapp
