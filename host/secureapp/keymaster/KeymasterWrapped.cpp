// Import of wrapped keys.
#include "secureapp/base/Params.h"
#include "secureapp/base/Refusal.h"
#include "secureapp/base/Secret.h"
#include "secureapp/base/Words.h"
#include "secureapp/crypto/AesGcm.h"
#include "secureapp/crypto/PrivateKey.h"
#include "secureapp/crypto/RsaOaep.h"
#include "secureapp/keymaster/Keymaster.h"
#include "secureapp/keys/OpenedKey.h"
#include "secureapp/keys/WrappedKey.h"

namespace lumo::secureapp {
namespace {

constexpr size_t kTransportKeyBytes = 32;

void checkUnwrapping(const OpenedKey& key, const ParamSet& unwrapping_params) {
    struct Need {
        keymaster_tag_t tag;
        uint32_t value;
        keymaster_error_t error;
    };
    constexpr Need kPurpose = {KM_TAG_PURPOSE, KM_PURPOSE_WRAP, KM_ERROR_INCOMPATIBLE_PURPOSE};
    constexpr Need kModes[] = {
        {KM_TAG_PADDING, KM_PAD_RSA_OAEP, KM_ERROR_INCOMPATIBLE_PADDING_MODE},
        {KM_TAG_DIGEST, KM_DIGEST_SHA_2_256, KM_ERROR_INCOMPATIBLE_DIGEST},
    };
    const ParamSet& authorizations = key.authorizations;
    if (key.algorithm() != KM_ALGORITHM_RSA) {
        refuse(KM_ERROR_INCOMPATIBLE_ALGORITHM, "a wrapping key is an RSA key, not of algorithm ",
               algorithmWord(key.algorithm()));
    }
    if (!authorizations.contains(kPurpose.tag, kPurpose.value)) {
        refuse(kPurpose.error, "purpose wrap is not among the wrapping key's: ",
               valueWords(kPurpose.tag, authorizations.integers(kPurpose.tag)));
    }
    for (const Need& need : kModes) {
        if (!authorizations.contains(need.tag, need.value)) {
            refuse(need.error, tagName(need.tag), " ", valueWord(need.tag, need.value),
                   " is not among the wrapping key's: ",
                   valueWords(need.tag, authorizations.integers(need.tag)));
        }
        for (const uint64_t asked : unwrapping_params.integers(need.tag)) {
            if (asked == need.value) continue;
            refuse(need.error, "keys are unwrapped with ", tagName(need.tag), " ",
                   valueWord(need.tag, need.value), ", not ", valueWord(need.tag, asked));
        }
    }
    // The call has no auth token with which such a key could be used.
    if (authorizations.contains(KM_TAG_USER_SECURE_ID)) {
        refuse(KM_ERROR_KEY_USER_NOT_AUTHENTICATED,
               "the wrapping key has USER_SECURE_ID, and an import carries no auth token; use a "
               "wrapping key that needs no user");
    }
}

Secret openTransportKey(ByteView wrapping_material, ByteView encrypted, ByteView masking_key) {
    std::optional<Bytes> masked =
        rsaOaepDecrypt(openPrivateKey(wrapping_material).get(), KM_DIGEST_SHA_2_256, encrypted);
    if (!masked) {
        refuse(KM_ERROR_UNKNOWN_ERROR,
               "the transport key does not decrypt with RSA-OAEP (SHA-256, MGF1 with SHA-1) under "
               "this wrapping key");
    }
    Secret transport_key(std::move(*masked));
    if (transport_key.bytes().size() != kTransportKeyBytes) {
        refuse(KM_ERROR_INVALID_ARGUMENT, "the transport key has ", transport_key.bytes().size(),
               " bytes in place of ", kTransportKeyBytes);
    }
    for (size_t i = 0; i < kTransportKeyBytes; ++i) transport_key.bytes()[i] ^= masking_key[i];
    return transport_key;
}

}  // namespace

Bytes Keymaster::importWrappedKey(ByteView wrapped, ByteView wrapping_blob, ByteView masking_key,
                                  const ParamSet& unwrapping_params, uint64_t password_sid,
                                  uint64_t biometric_sid) {
    const OpenedKey wrapping_key = openForUse(wrapping_blob, unwrapping_params);
    checkUnwrapping(wrapping_key, unwrapping_params);
    const WrappedKey parsed = parseWrappedKey(wrapped);
    if (masking_key.size() != kTransportKeyBytes) {
        refuse(KM_ERROR_INVALID_ARGUMENT, "the masking key has ", masking_key.size(),
               " bytes in place of ", kTransportKeyBytes);
    }

    const Secret transport_key = openTransportKey(wrapping_key.material.bytes(),
                                                  parsed.encrypted_transport_key, masking_key);
    std::optional<Bytes> opened =
        aesGcmOpen(transport_key.bytes(), parsed.nonce, parsed.key_description, parsed.sealed);
    if (!opened) {
        refuse(KM_ERROR_VERIFICATION_FAILED,
               "the wrapped key's AES-GCM tag does not fit: masking key, key description, nonce or "
               "ciphertext is not the one that it was wrapped with");
    }
    const Secret material(std::move(*opened));
    return importMaterial(resolveSecureIds(parsed.params, password_sid, biometric_sid),
                          parsed.format, material.bytes(), kOriginSecurelyImported);
}

}  // namespace lumo::secureapp
