// Attestation: what this keymaster certifies about a key.
#include "secureapp/attestation/Attestation.h"
#include "secureapp/attestation/AttestationKeys.h"
#include "secureapp/crypto/Crypto.h"
#include "secureapp/keymaster/Keymaster.h"
#include "secureapp/keymaster/KeymasterImpl.h"
#include "secureapp/keys/KeyMaterial.h"

namespace lumo::secureapp {
namespace {

constexpr size_t kMaxChallengeBytes = 128;
constexpr size_t kMaxApplicationIdBytes = 1024;

// Version numbers that go with the version of key blobs.
struct Versions {
    uint32_t attestation;
    uint32_t keymaster;
};
constexpr Versions kVersions4_0 = {3, 4};
constexpr Versions kVersions4_1 = {4, 41};

void checkAlgorithm(uint32_t algorithm) {
    if (algorithm != KM_ALGORITHM_RSA && algorithm != KM_ALGORITHM_EC) {
        refuse(KM_ERROR_INCOMPATIBLE_ALGORITHM);
    }
}

void checkParams(const ParamSet& params, keymaster_security_level_t level) {
    if (params.contains(KM_TAG_DEVICE_UNIQUE_ATTESTATION)) {
        refuse(level == KM_SECURITY_LEVEL_STRONGBOX ? KM_ERROR_CANNOT_ATTEST_IDS
                                                    : KM_ERROR_UNIMPLEMENTED);
    }
    const Param* challenge = params.find(KM_TAG_ATTESTATION_CHALLENGE);
    if (challenge == nullptr) refuse(KM_ERROR_ATTESTATION_CHALLENGE_MISSING);
    if (challenge->bytes.size() > kMaxChallengeBytes) refuse(KM_ERROR_INVALID_INPUT_LENGTH);
    const Param* application_id = params.find(KM_TAG_ATTESTATION_APPLICATION_ID);
    if (application_id == nullptr) refuse(KM_ERROR_ATTESTATION_APPLICATION_ID_MISSING);
    if (application_id->bytes.size() > kMaxApplicationIdBytes)
        refuse(KM_ERROR_INVALID_INPUT_LENGTH);
}

bool isDeviceId(keymaster_tag_t tag) {
    return tag == KM_TAG_ATTESTATION_ID_BRAND || tag == KM_TAG_ATTESTATION_ID_DEVICE ||
           tag == KM_TAG_ATTESTATION_ID_PRODUCT || tag == KM_TAG_ATTESTATION_ID_SERIAL ||
           tag == KM_TAG_ATTESTATION_ID_IMEI || tag == KM_TAG_ATTESTATION_ID_MEID ||
           tag == KM_TAG_ATTESTATION_ID_MANUFACTURER || tag == KM_TAG_ATTESTATION_ID_MODEL;
}

// The device ids that are asked for, all of which must be the provisioned ones.
ParamSet matchedIds(const ParamSet& params, const DeviceConfig& config, State& state) {
    ParamSet ids;
    for (const Param& param : params) {
        if (!isDeviceId(param.tag)) continue;
        const auto known = config.device_ids.find(param.tag);
        if (known == config.device_ids.end() || known->second.empty() ||
            known->second != param.bytes) {
            refuse(KM_ERROR_CANNOT_ATTEST_IDS);
        }
        ids.add(param);
    }
    if (!ids.empty() && state.read(kIdsDestroyedRecord)) refuse(KM_ERROR_CANNOT_ATTEST_IDS);
    return ids;
}

RootOfTrust rootOfTrust(const DeviceConfig& config) {
    return {config.verified_boot_key, config.device_locked, config.verified_boot_state,
            config.verified_boot_hash};
}

Bytes uniqueIdOf(const ParamSet& authorizations, const ParamSet& params, State& state,
                 RandomSource& random) {
    const std::string label = "unique id";
    const Secret device_key(lastingSecret(state, random, kDeviceKeyRecord, kSecretRecordBytes));
    const Secret secret(hmacSha256(device_key.bytes(), Bytes(label.begin(), label.end())));
    return uniqueId(secret.bytes(), authorizations.integer(KM_TAG_CREATION_DATETIME).value_or(0),
                    params.bytes(KM_TAG_ATTESTATION_APPLICATION_ID),
                    params.contains(KM_TAG_RESET_SINCE_ID_ROTATION));
}

}  // namespace

std::vector<Bytes> Keymaster::attestKey(ByteView blob, const ParamSet& params) {
    const OpenedKey key = openForUse(blob, params);
    checkAlgorithm(key.algorithm());
    checkParams(params, options_.level);

    LeafRequest request;
    request.authorizations = key.all();
    request.public_key = publicKeyOf(key.material);
    request.now = clock_.wallMillis();

    KeyDescription& description = request.description;
    const Versions& versions =
        options_.blob_version >= kBlobVersion4_1 ? kVersions4_1 : kVersions4_0;
    description.attestation_version = versions.attestation;
    description.keymaster_version = versions.keymaster;
    description.security_level = options_.level;
    description.challenge = params.bytes(KM_TAG_ATTESTATION_CHALLENGE).copy();
    description.software = key.software;
    description.software.add(*params.find(KM_TAG_ATTESTATION_APPLICATION_ID));
    description.hardware = key.hardware;
    description.hardware.add(matchedIds(params, config_, state_));
    description.root_of_trust = rootOfTrust(config_);
    if (request.authorizations.contains(KM_TAG_INCLUDE_UNIQUE_ID)) {
        description.unique_id = uniqueIdOf(request.authorizations, params, state_, random_);
    }

    const AttestationKey batch = attestationKey(state_, config_, options_.level, key.algorithm());
    std::vector<Bytes> chain = {makeLeafCertificate(request, batch.key.get(), batch.chain.front())};
    chain.insert(chain.end(), batch.chain.begin(), batch.chain.end());
    return chain;
}

}  // namespace lumo::secureapp
