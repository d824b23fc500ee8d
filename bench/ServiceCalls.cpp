#include "ServiceCalls.h"

#include "Scratch.h"

namespace lumo::bench {
namespace {

using ::android::hardware::keymaster::V4_0::ErrorCode;
using ::android::hardware::keymaster::V4_0::HmacSharingParameters;
using ::android::hardware::keymaster::V4_0::KeyCharacteristics;
using ::android::hardware::keymaster::V4_0::KeyPurpose;

using ::android::hardware::keymaster::V4_0::KeyFormat;

hidl_vec<KeyParameter> gcmKeyParams() {
    return hidlParams({
        keymaster_param_enum(KM_TAG_ALGORITHM, KM_ALGORITHM_AES),
        keymaster_param_int(KM_TAG_KEY_SIZE, 256),
        keymaster_param_enum(KM_TAG_PURPOSE, KM_PURPOSE_ENCRYPT),
        keymaster_param_enum(KM_TAG_BLOCK_MODE, KM_MODE_GCM),
        keymaster_param_enum(KM_TAG_PADDING, KM_PAD_NONE),
        keymaster_param_int(KM_TAG_MIN_MAC_LENGTH, 128),
        keymaster_param_bool(KM_TAG_CALLER_NONCE),
        keymaster_param_bool(KM_TAG_NO_AUTH_REQUIRED),
    });
}

hidl_vec<KeyParameter> gcmUse() {
    const std::vector<uint8_t> nonce = gcmNonce();
    return hidlParams({
        keymaster_param_enum(KM_TAG_BLOCK_MODE, KM_MODE_GCM),
        keymaster_param_enum(KM_TAG_PADDING, KM_PAD_NONE),
        keymaster_param_int(KM_TAG_MAC_LENGTH, 128),
        keymaster_param_blob(KM_TAG_NONCE, nonce.data(), nonce.size()),
    });
}

}  // namespace

GenerateKeyCall::GenerateKeyCall(size_t params)
    : device_(::keymaster::V4_0::CreateKeymasterDevice()), params_(hidlParams(params)) {
    device_->generateKey(params_, [this](ErrorCode error, const hidl_vec<uint8_t>& blob,
                                         const KeyCharacteristics& lists) {
        require(error == ErrorCode::OK, "cannot generate a key");
        blob_ = blob;
        characteristics_ = lists.hardwareEnforced.size() + lists.softwareEnforced.size();
    });
}

void GenerateKeyCall::run() {
    device_->generateKey(params_,
                         [](ErrorCode error, const hidl_vec<uint8_t>&, const KeyCharacteristics&) {
                             require(error == ErrorCode::OK, "generateKey failed");
                         });
}

CharacteristicsCall::CharacteristicsCall(size_t params)
    : device_(::keymaster::V4_0::CreateKeymasterDevice()), blob_(GenerateKeyCall(params).blob()) {
    for (const keymaster_key_param_t& param : coreParams(params)) {
        const std::vector<uint8_t> bytes(param.blob.data, param.blob.data + param.blob.data_length);
        if (param.tag == KM_TAG_APPLICATION_ID) application_id_ = bytes;
        if (param.tag == KM_TAG_APPLICATION_DATA) application_data_ = bytes;
    }
}

void CharacteristicsCall::run() {
    device_->getKeyCharacteristics(
        blob_, application_id_, application_data_, [](ErrorCode error, const KeyCharacteristics&) {
            require(error == ErrorCode::OK, "getKeyCharacteristics failed");
        });
}

SharingParametersCall::SharingParametersCall()
    : device_(::keymaster::V4_0::CreateKeymasterDevice()) {}

void SharingParametersCall::run() {
    device_->getHmacSharingParameters([](ErrorCode error, const HmacSharingParameters&) {
        require(error == ErrorCode::OK, "getHmacSharingParameters failed");
    });
}

std::vector<uint8_t> gcmKey() {
    return std::vector<uint8_t>(32, 0x6b);
}

std::vector<uint8_t> gcmNonce() {
    return std::vector<uint8_t>(12, 0x6e);
}

std::vector<uint8_t> gcmInput(size_t size) {
    std::vector<uint8_t> input(size);
    for (size_t i = 0; i < size; ++i) input[i] = static_cast<uint8_t>(i * 7);
    return input;
}

UpdateCall::UpdateCall(size_t size)
    : device_(::keymaster::V4_0::CreateKeymasterDevice()), input_(gcmInput(size)) {
    hidl_vec<uint8_t> key;
    device_->importKey(
        gcmKeyParams(), KeyFormat::RAW, gcmKey(),
        [&](ErrorCode error, const hidl_vec<uint8_t>& blob, const KeyCharacteristics&) {
            require(error == ErrorCode::OK, "cannot import an AES key");
            key = blob;
        });
    device_->begin(KeyPurpose::ENCRYPT, key, gcmUse(), no_token_,
                   [this](ErrorCode error, const hidl_vec<KeyParameter>&, uint64_t operation) {
                       require(error == ErrorCode::OK, "cannot begin");
                       operation_ = operation;
                   });
    device_->update(operation_, no_params_, input_, no_token_, no_verification_,
                    [this](ErrorCode error, uint32_t, const hidl_vec<KeyParameter>&,
                           const hidl_vec<uint8_t>& output) {
                        require(error == ErrorCode::OK, "cannot update");
                        first_output_ = output;
                    });
}

UpdateCall::~UpdateCall() {
    device_->abort(operation_);
}

void UpdateCall::run() {
    device_->update(operation_, no_params_, input_, no_token_, no_verification_,
                    [this](ErrorCode error, uint32_t consumed, const hidl_vec<KeyParameter>&,
                           const hidl_vec<uint8_t>& output) {
                        require(error == ErrorCode::OK && consumed == input_.size() &&
                                    output.size() == input_.size(),
                                "update failed");
                    });
}

}  // namespace lumo::bench
