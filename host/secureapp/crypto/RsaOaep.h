// Decryption with RSA-OAEP.
#pragma once

#include <openssl/evp.h>

#include <optional>

#include "secureapp/base/Bytes.h"

namespace lumo::secureapp {

// With the given digest, MGF1 with SHA-1 and an empty label; nullopt when the padding is wrong.
std::optional<Bytes> rsaOaepDecrypt(EVP_PKEY* key, uint32_t digest, ByteView ciphertext);

}  // namespace lumo::secureapp
