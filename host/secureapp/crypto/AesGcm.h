// AES-256-GCM with a 12-byte nonce; the 16-byte tag follows the ciphertext.
#pragma once

#include <optional>

#include "secureapp/base/Bytes.h"

namespace lumo::secureapp {

Bytes aesGcmSeal(ByteView key, ByteView nonce, ByteView aad, ByteView plaintext);
// nullopt when the tag does not match.
std::optional<Bytes> aesGcmOpen(ByteView key, ByteView nonce, ByteView aad, ByteView sealed);

}  // namespace lumo::secureapp
