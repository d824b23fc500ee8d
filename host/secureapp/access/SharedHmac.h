// The HMAC key that secure elements and authenticators of one device agree on. Derivation: SP
// 800-108 counter mode over AES-CMAC.
#pragma once

#include <hardware/keymaster_defs.h>

#include <optional>
#include <vector>

#include "secureapp/base/Bytes.h"
#include "secureapp/base/Environment.h"

namespace lumo::secureapp {

struct HmacSharingParameters {
    Bytes seed;   // empty or 32 bytes
    Bytes nonce;  // 32 bytes, fresh each boot
};

class SharedHmac {
  public:
    // StrongBox keeps a stored seed; the trusted environment's is empty. Both keep the pre-shared
    // secret of the device in `shared_state`, which the instances that agree have in common. What
    // is stored is read here, and stored by the first call below that needs it: that takes the disk
    // some milliseconds. Before the first agreement the key is derived from the instance's own
    // parameters alone. Every call may throw StateError.
    SharedHmac(State& own_state, State& shared_state, RandomSource& random,
               keymaster_security_level_t level);

    const HmacSharingParameters& ownParameters();

    // Agrees on the key of `all`, in the order given, and returns the 32-byte sharing check.
    // KM_ERROR_INVALID_ARGUMENT when the instance's own parameters are not among them; the old key
    // stays.
    Bytes agree(const std::vector<HmacSharingParameters>& all);

    const Bytes& key();

  private:
    LastingSecret pre_shared_secret_;
    std::optional<LastingSecret> seed_;
    HmacSharingParameters own_;
    Bytes key_;  // empty until it is needed
};

// The shared key of the device secret and the parameters; and the check value that proves it.
Bytes deriveSharedKey(ByteView pre_shared_secret, const std::vector<HmacSharingParameters>& all);
Bytes sharingCheck(ByteView shared_key);

}  // namespace lumo::secureapp
