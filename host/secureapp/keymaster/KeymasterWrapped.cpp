// Import of wrapped keys.
#include "secureapp/base/Params.h"
#include "secureapp/base/Refusal.h"
#include "secureapp/base/Secret.h"
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
    if (key.algorithm() != KM_ALGORITHM_RSA) refuse(KM_ERROR_INCOMPATIBLE_ALGORITHM);
    if (!authorizations.contains(kPurpose.tag, kPurpose.value)) refuse(kPurpose.error);
    for (const Need& need : kModes) {
        if (!authorizations.contains(need.tag, need.value)) refuse(need.error);
        for (const uint64_t asked : unwrapping_params.integers(need.tag)) {
            if (asked != need.value) refuse(need.error);
        }
    }
    // The call has no auth token with which such a key could be used.
    if (authorizations.contains(KM_TAG_USER_SECURE_ID)) refuse(KM_ERROR_KEY_USER_NOT_AUTHENTICATED);
}

Secret openTransportKey(ByteView wrapping_material, ByteView encrypted, ByteView masking_key) {
    std::optional<Bytes> masked =
        rsaOaepDecrypt(openPrivateKey(wrapping_material).get(), KM_DIGEST_SHA_2_256, encrypted);
    if (!masked) refuse(KM_ERROR_UNKNOWN_ERROR);
    Secret transport_key(std::move(*masked));
    if (transport_key.bytes().size() != kTransportKeyBytes) refuse(KM_ERROR_INVALID_ARGUMENT);
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
    if (masking_key.size() != kTransportKeyBytes) refuse(KM_ERROR_INVALID_ARGUMENT);

    const Secret transport_key = openTransportKey(wrapping_key.material.bytes(),
                                                  parsed.encrypted_transport_key, masking_key);
    std::optional<Bytes> opened =
        aesGcmOpen(transport_key.bytes(), parsed.nonce, parsed.key_description, parsed.sealed);
    if (!opened) refuse(KM_ERROR_VERIFICATION_FAILED);
    const Secret material(std::move(*opened));
    return importMaterial(resolveSecureIds(parsed.params, password_sid, biometric_sid),
                          parsed.format, material.bytes(), kOriginSecurelyImported);
}

}  // namespace lumo::secureapp
