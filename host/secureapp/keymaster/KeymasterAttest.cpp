// Attestation: what this keymaster certifies about a key.
#include "secureapp/attestation/Attestation.h"
#include "secureapp/attestation/AttestationKeys.h"
#include "secureapp/attestation/AttestationRules.h"
#include "secureapp/base/DeviceConfig.h"
#include "secureapp/base/Environment.h"
#include "secureapp/base/Params.h"
#include "secureapp/base/Refusal.h"
#include "secureapp/base/Secret.h"
#include "secureapp/crypto/Digest.h"
#include "secureapp/keymaster/Keymaster.h"
#include "secureapp/keys/KeyBlob.h"
#include "secureapp/keys/KeyMaterial.h"
#include "secureapp/keys/KeymasterOptions.h"
#include "secureapp/keys/OpenedKey.h"

namespace lumo::secureapp {
namespace {

// Version numbers that go with the version of key blobs.
struct Versions {
    uint32_t attestation;
    uint32_t keymaster;
};
constexpr Versions kVersions4_0 = {3, 4};
constexpr Versions kVersions4_1 = {4, 41};

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

// What is attested is what is enforced, also where the blob is too old to report it.
void addUnreported(const OpenedKey& key, KeyDescription& description) {
    for (const Param& param : key.unreported()) {
        (isSoftwareEnforced(param.tag) ? description.software : description.hardware).add(param);
    }
    if (description.hardware.contains(KM_TAG_ROLLBACK_RESISTANT)) {
        description.hardware.add(boolParam(KM_TAG_ROLLBACK_RESISTANCE));
    }
}

}  // namespace

const AttestationKey& Keymaster::batchKey(uint32_t algorithm) {
    AttestationKey& batch = batch_keys_[algorithm];
    if (batch.key == nullptr) batch = attestationKey(state_, config_, options_.level, algorithm);
    return batch;
}

const AttestationKey& Keymaster::deviceKey() {
    if (device_key_.key == nullptr) {
        device_key_ = deviceAttestationKey(state_, config_, options_.level);
    }
    return device_key_;
}

std::vector<Bytes> Keymaster::attestKey(ByteView blob, const ParamSet& params) {
    const OpenedKey key = openForUse(blob, params);
    const Versions& versions =
        options_.blob_version >= kBlobVersion4_1 ? kVersions4_1 : kVersions4_0;
    checkAttestationRequest(key.algorithm(), params, options_.level, versions.attestation);

    LeafRequest request;
    request.authorizations = key.authorizations;
    request.public_key = publicKeyOf(key.material.bytes());
    request.now = clock_.wallMillis();

    KeyDescription& description = request.description;
    description.attestation_version = versions.attestation;
    description.keymaster_version = versions.keymaster;
    description.security_level = options_.level;
    description.challenge = params.bytes(KM_TAG_ATTESTATION_CHALLENGE).copy();
    description.software = key.software();
    description.hardware = key.hardware();
    addUnreported(key, description);
    description.software.add(*params.find(KM_TAG_ATTESTATION_APPLICATION_ID));
    description.hardware.add(matchedDeviceIds(params, config_, state_));
    description.root_of_trust = rootOfTrust(config_);
    if (request.authorizations.contains(KM_TAG_INCLUDE_UNIQUE_ID)) {
        description.unique_id = uniqueIdOf(request.authorizations, params, state_, random_);
    }

    const bool by_device = params.contains(KM_TAG_DEVICE_UNIQUE_ATTESTATION);
    if (by_device) description.hardware.add(boolParam(KM_TAG_DEVICE_UNIQUE_ATTESTATION));
    const AttestationKey& signer = by_device ? deviceKey() : batchKey(key.algorithm());
    std::vector<Bytes> chain = {
        makeLeafCertificate(request, signer.key.get(), signer.chain.front())};
    chain.insert(chain.end(), signer.chain.begin(), signer.chain.end());
    return chain;
}

}  // namespace lumo::secureapp
