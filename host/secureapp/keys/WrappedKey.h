// A key wrapped for import: SecureKeyWrapper, a DER structure.
#pragma once

#include "secureapp/base/Params.h"

namespace lumo::secureapp {

// The views are into what was parsed.
struct WrappedKey {
    ByteView encrypted_transport_key;
    ByteView nonce;            // 12 bytes
    ByteView key_description;  // as received: it is authenticated with the key
    Bytes sealed;              // the encrypted key material, then the 16-byte tag
    uint32_t format = 0;       // keymaster_key_format_t, unchecked
    ParamSet params;
};

// KM_ERROR_INVALID_ARGUMENT for anything but a well-formed wrapper of version 0.
WrappedKey parseWrappedKey(ByteView encoding);

// In a wrapped key USER_SECURE_ID says which authenticators the key is for, as bits; replaces them
// by the given ids. KM_ERROR_INVALID_ARGUMENT where it names none.
ParamSet resolveSecureIds(const ParamSet& params, uint64_t password_sid, uint64_t biometric_sid);

}  // namespace lumo::secureapp
