#include "secureapp/attestation/AttestationRules.h"

#include "secureapp/base/Refusal.h"
#include "secureapp/base/Words.h"

namespace lumo::secureapp {
namespace {

constexpr size_t kMaxChallengeBytes = 128;
constexpr size_t kMaxApplicationIdBytes = 1024;
constexpr uint32_t kVersionWithDeviceKey = 4;
constexpr char kIdsDestroyedRecord[] = "ids-destroyed";  // exists once the device ids are destroyed

bool isDeviceId(keymaster_tag_t tag) {
    return tag == KM_TAG_ATTESTATION_ID_BRAND || tag == KM_TAG_ATTESTATION_ID_DEVICE ||
           tag == KM_TAG_ATTESTATION_ID_PRODUCT || tag == KM_TAG_ATTESTATION_ID_SERIAL ||
           tag == KM_TAG_ATTESTATION_ID_IMEI || tag == KM_TAG_ATTESTATION_ID_MEID ||
           tag == KM_TAG_ATTESTATION_ID_MANUFACTURER || tag == KM_TAG_ATTESTATION_ID_MODEL;
}

}  // namespace

void checkAttestationRequest(uint32_t algorithm, const ParamSet& params,
                             keymaster_security_level_t level, uint32_t attestation_version) {
    if (algorithm != KM_ALGORITHM_RSA && algorithm != KM_ALGORITHM_EC) {
        refuse(KM_ERROR_INCOMPATIBLE_ALGORITHM, "only keys with a public key are attested, not of ",
               algorithmWord(algorithm));
    }
    if (params.contains(KM_TAG_DEVICE_UNIQUE_ATTESTATION)) {
        if (level != KM_SECURITY_LEVEL_STRONGBOX) {
            refuse(KM_ERROR_UNIMPLEMENTED,
                   "the trusted environment has no attestation key of the device's own");
        }
        if (attestation_version < kVersionWithDeviceKey) {
            refuse(KM_ERROR_CANNOT_ATTEST_IDS,
                   "this secure application attests in version " +
                       std::to_string(attestation_version) +
                       ", which has no field for an attestation by the device's own key");
        }
    }
    const Param* challenge = params.find(KM_TAG_ATTESTATION_CHALLENGE);
    if (challenge == nullptr) {
        refuse(KM_ERROR_ATTESTATION_CHALLENGE_MISSING, "there is no ATTESTATION_CHALLENGE");
    }
    if (challenge->bytes.size() > kMaxChallengeBytes) {
        refuse(KM_ERROR_INVALID_INPUT_LENGTH, "the attestation challenge has ",
               challenge->bytes.size(), " bytes, at most ", kMaxChallengeBytes, " are attested");
    }
    const Param* application_id = params.find(KM_TAG_ATTESTATION_APPLICATION_ID);
    if (application_id == nullptr) {
        refuse(KM_ERROR_ATTESTATION_APPLICATION_ID_MISSING,
               "there is no ATTESTATION_APPLICATION_ID");
    }
    if (application_id->bytes.size() > kMaxApplicationIdBytes) {
        refuse(KM_ERROR_INVALID_INPUT_LENGTH, "the attestation application id has ",
               application_id->bytes.size(), " bytes, at most ", kMaxApplicationIdBytes,
               " are attested");
    }
}

ParamSet matchedDeviceIds(const ParamSet& params, const DeviceConfig& config, State& state) {
    ParamSet ids;
    for (const Param& param : params) {
        if (!isDeviceId(param.tag)) continue;
        const auto known = config.device_ids.find(param.tag);
        if (known == config.device_ids.end() || known->second.empty()) {
            refuse(KM_ERROR_CANNOT_ATTEST_IDS, "the device has no ", tagName(param.tag),
                   "; world.conf can give it one");
        }
        if (known->second != param.bytes) {
            refuse(KM_ERROR_CANNOT_ATTEST_IDS, tagName(param.tag), " is not the device's");
        }
        ids.add(param);
    }
    if (!ids.empty() && state.read(kIdsDestroyedRecord)) {
        refuse(KM_ERROR_CANNOT_ATTEST_IDS,
               "the device ids were destroyed, for good; attest without them");
    }
    return ids;
}

void destroyDeviceIds(State& state) {
    state.update(kIdsDestroyedRecord,
                 [](const std::optional<Bytes>&) { return std::optional<Bytes>(Bytes{1}); });
}

}  // namespace lumo::secureapp
