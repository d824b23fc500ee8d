// The HMAC key that secure elements and authenticators of one device agree on, and the tokens that
// it authenticates. Derivation: SP 800-108 counter mode over AES-CMAC.
#pragma once

#include "secureapp/base/Environment.h"
#include "secureapp/base/Types.h"

namespace lumo::secureapp {

// The pre-shared secret, among the records that the instances of one device share.
constexpr char kSharedSecretRecord[] = "shared-secret";
constexpr size_t kSecretRecordBytes = 32;

struct HmacSharingParameters {
    Bytes seed;   // empty or 32 bytes
    Bytes nonce;  // 32 bytes, fresh each boot
};

class SharedHmac {
  public:
    // StrongBox keeps a stored seed; the trusted environment's is empty. Both keep the pre-shared
    // secret of the device in `shared_state`, common to the instances that are to agree. Before the
    // first agreement the key follows from the own parameters alone.
    SharedHmac(State& own_state, State& shared_state, RandomSource& random,
               keymaster_security_level_t level);

    const HmacSharingParameters& ownParameters() const { return own_; }

    // Agrees on the key of `all`, in the order given, and returns the 32-byte sharing check.
    // KM_ERROR_INVALID_ARGUMENT when the own parameters are not among them; the old key stays.
    Bytes agree(const std::vector<HmacSharingParameters>& all);

    const Bytes& key() const { return key_; }

  private:
    Bytes derive(const std::vector<HmacSharingParameters>& all) const;

    Bytes pre_shared_secret_;
    HmacSharingParameters own_;
    Bytes key_;
};

// H from K and the parameters; and the check value that proves it.
Bytes deriveSharedKey(ByteView pre_shared_secret, const std::vector<HmacSharingParameters>& all);
Bytes sharingCheck(ByteView shared_key);

// The 69-byte hardware auth token.
struct AuthToken {
    uint64_t challenge = 0;
    uint64_t user_id = 0;
    uint64_t authenticator_id = 0;
    uint32_t authenticator_type = 0;
    uint64_t timestamp = 0;  // milliseconds since boot
};
constexpr size_t kAuthTokenBytes = 69;

// Nothing when the record is no valid token under `shared_key`: wrong size, version or MAC.
std::optional<AuthToken> openAuthToken(ByteView record, ByteView shared_key);
// The record of a token, with its MAC; authenticators make these.
Bytes makeAuthToken(const AuthToken& token, ByteView shared_key);

// The MAC of a verification token without parameters.
Bytes verificationTokenMac(ByteView shared_key, uint64_t challenge, uint64_t timestamp,
                           uint32_t security_level);

// Running MAC over the data of a confirmed signature.
Bytes confirmationToken(ByteView shared_key, ByteView data);

}  // namespace lumo::secureapp
