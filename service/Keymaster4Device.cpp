#include "Keymaster4Device.h"

#include <android-base/properties.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <string>
#include <vector>

#include "AuthTokenParams.h"
#include "DeviceOutputs.h"
#include "EnumBits.h"
#include "KeymasterHalDevice.h"
#include "KmParamSet.h"
#include "Log.h"
#include "PlatformTags.h"
#include "PlatformVersion.h"

namespace keymaster::V4_0 {
namespace {

using ::android::hardware::hidl_string;
using ::android::hardware::Void;
using ::android::hardware::keymaster::V4_0::KeyCharacteristics;
using ::android::hardware::keymaster::V4_0::SecurityLevel;
using ::keymasterdevice::EnumArgument;
using ::keymasterdevice::enumFromBits;
using ::keymasterdevice::enumToBits;
using ::keymasterdevice::errorToWord;
using ::keymasterdevice::KeymasterHalDevice;
using ::keymasterdevice::kSecurityLevelStrongBox;
using ::keymasterdevice::kServiceLogTag;
using ::keymasterdevice::kTagVendorPatchlevel;

// The numbers are the same in both types; one without an enumerator passes unchanged.
ErrorCode toErrorCode(const keymaster_error_t& error) {
    return static_cast<ErrorCode>(errorToWord(error));
}

keymaster_key_format_t toKeymaster(KeyFormat format) {
    return enumFromBits<keymaster_key_format_t>(enumToBits(format));
}

keymaster_purpose_t toKeymaster(KeyPurpose purpose) {
    return enumFromBits<keymaster_purpose_t>(enumToBits(purpose));
}

// Ends the process. The condition text is fixed; the message names the step that failed.
[[noreturn]] void failStart(const char* message) {
    __android_log_assert("ret", kServiceLogTag, "%s", message);
}

void waitForProperty(const char* name) {
    // In effect without limit: the property appears when the platform has read it.
    if (!::android::base::WaitForPropertyCreation(name, std::chrono::milliseconds::max())) {
        failStart("Android property not present");
    }
}

// The HIDL vector's bytes, in place; the pointer is null when there are none.
keymaster_blob_t blobOf(const hidl_vec<uint8_t>& bytes) {
    return {bytes.size() == 0 ? nullptr : bytes.data(), bytes.size()};
}

keymaster_key_blob_t keyBlobOf(const hidl_vec<uint8_t>& bytes) {
    return {bytes.size() == 0 ? nullptr : bytes.data(), bytes.size()};
}

// Where an argument is optional the device core gets a null pointer for an empty one.
const keymaster_blob_t* optional(const keymaster_blob_t& blob) {
    return blob.data_length == 0 ? nullptr : &blob;
}

const keymaster_key_blob_t* optional(const keymaster_key_blob_t& blob) {
    return blob.key_material_size == 0 ? nullptr : &blob;
}

std::vector<uint8_t> copyOf(const hidl_vec<uint8_t>& bytes) {
    return {bytes.data(), bytes.data() + bytes.size()};
}

// A HIDL vector that refers to the bytes without owning them.
hidl_vec<uint8_t> viewOf(const uint8_t* data, size_t size) {
    hidl_vec<uint8_t> view;
    view.setToExternal(const_cast<uint8_t*>(data), size);
    return view;
}

hidl_vec<uint8_t> toHidl(const keymaster_blob_t& blob) {
    return viewOf(blob.data, blob.data_length);
}

hidl_vec<uint8_t> toHidl(const keymaster_key_blob_t& blob) {
    return viewOf(blob.key_material, blob.key_material_size);
}

hidl_vec<KeyParameter> toHidl(const keymaster_key_param_set_t& set) {
    return kmParamSet2Hidl(set);
}

KeyCharacteristics toHidl(const keymaster_key_characteristics_t& sets) {
    KeyCharacteristics characteristics;
    characteristics.softwareEnforced = toHidl(sets.sw_enforced);
    characteristics.hardwareEnforced = toHidl(sets.hw_enforced);
    return characteristics;
}

hidl_vec<hidl_vec<uint8_t>> toHidl(const keymaster_cert_chain_t& chain) {
    hidl_vec<hidl_vec<uint8_t>> certificates;
    if (chain.entries == nullptr || chain.entry_count == 0) return certificates;
    certificates.resize(chain.entry_count);
    for (size_t i = 0; i < chain.entry_count; ++i) certificates[i] = toHidl(chain.entries[i]);
    return certificates;
}

// The converted output, or an empty one where the call failed.
template <typename Record>
auto resultOf(ErrorCode error, const Record& record) {
    using Hidl = decltype(toHidl(record));
    return error == ErrorCode::OK ? toHidl(record) : Hidl();
}

hmac_sharing_params_t toRecord(const HmacSharingParameters& params) {
    hmac_sharing_params_t record{};
    // Of a longer seed the first 32 bytes go in: the nonce would overwrite the rest.
    const size_t seed_length = std::min<size_t>(params.seed.size(), sizeof(record.seed));
    if (seed_length != 0) std::memcpy(record.seed, params.seed.data(), seed_length);
    std::memcpy(record.nonce, params.nonce.data(), sizeof(record.nonce));
    return record;
}

}  // namespace

Keymaster4Device::Keymaster4Device(keymaster_security_level_t security_level)
    : device_(new KeymasterHalDevice(EnumArgument(security_level))),
      security_level_(enumToBits(security_level)) {
    bool date_support = false;
    waitForProperty("ro.build.version.security_patch");
    waitForProperty("ro.vendor.build.security_patch");
    waitForProperty("ro.build.version.release");
    if (errorToWord(device_->get_date_support(&date_support)) != KM_ERROR_OK) {
        failStart("get_date_support failed");
    }
    keymaster_key_param_t versions[] = {
        keymaster_param_int(KM_TAG_OS_VERSION, GetOsVersion()),
        keymaster_param_int(KM_TAG_OS_PATCHLEVEL, GetOsPatchlevel()),
        keymaster_param_int(kTagVendorPatchlevel, GetVendorPatchlevel(date_support)),
    };
    const keymaster_key_param_set_t params = {versions, std::size(versions)};
    if (errorToWord(device_->configure(&params)) != KM_ERROR_OK) failStart("Configure failed");
}

Keymaster4Device::~Keymaster4Device() = default;

Return<void> Keymaster4Device::getHardwareInfo(getHardwareInfo_cb _hidl_cb) {
    const hidl_string name = "Keymaster HAL: " + std::to_string(device_->get_keymaster_version());
    const hidl_string author = "LUMO";
    // Kept: at any other level nothing is called back.
    if (security_level_ == kSecurityLevelStrongBox) {
        _hidl_cb(SecurityLevel::STRONGBOX, name, author);
    } else if (security_level_ == KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT) {
        _hidl_cb(SecurityLevel::TRUSTED_ENVIRONMENT, name, author);
    }
    return Void();
}

Return<void> Keymaster4Device::getHmacSharingParameters(getHmacSharingParameters_cb _hidl_cb) {
    hmac_sharing_params_t record{};
    const ErrorCode error = toErrorCode(device_->get_hmac_sharing_parameters(&record));
    HmacSharingParameters params{};
    if (error == ErrorCode::OK) {
        params.seed.setToExternal(record.seed, sizeof(record.seed));
        std::memcpy(params.nonce.data(), record.nonce, sizeof(record.nonce));
    }
    _hidl_cb(error, params);
    return Void();
}

Return<void> Keymaster4Device::computeSharedHmac(const hidl_vec<HmacSharingParameters>& params,
                                                 computeSharedHmac_cb _hidl_cb) {
    std::vector<hmac_sharing_params_t> records;
    records.reserve(params.size());
    for (const HmacSharingParameters& one : params) records.push_back(toRecord(one));

    std::vector<uint8_t> check;
    const ErrorCode error = toErrorCode(device_->compute_shared_hmac(std::move(records), check));
    hidl_vec<uint8_t> sharing_check;
    if (error == ErrorCode::OK) sharing_check = check;
    _hidl_cb(error, sharing_check);
    return Void();
}

Return<void> Keymaster4Device::verifyAuthorization(
    uint64_t challenge, const hidl_vec<KeyParameter>& /*parametersToVerify*/,
    const HardwareAuthToken& /*authToken*/, verifyAuthorization_cb _hidl_cb) {
    verification_token_t record{};
    ErrorCode error = toErrorCode(device_->verifyAuthorization(challenge, &record));
    VerificationToken token{};
    if (error == ErrorCode::OK) {
        token.challenge = record.challenge;
        token.timestamp = record.timestamp;
        token.mac.setToExternal(record.mac, sizeof(record.mac));
        if (record.security_level == KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT ||
            record.security_level == kSecurityLevelStrongBox) {
            token.securityLevel = static_cast<SecurityLevel>(record.security_level);
        } else {
            error = ErrorCode::UNKNOWN_ERROR;
        }
    }
    _hidl_cb(error, token);
    return Void();
}

Return<ErrorCode> Keymaster4Device::addRngEntropy(const hidl_vec<uint8_t>& /*data*/) {
    return ErrorCode::OK;
}

Return<void> Keymaster4Device::generateKey(const hidl_vec<KeyParameter>& keyParams,
                                           generateKey_cb _hidl_cb) {
    const KmParamSet params(keyParams);
    Output<keymaster_key_blob_t> blob;
    Output<keymaster_key_characteristics_t> characteristics;
    const ErrorCode error = toErrorCode(device_->generate_key(&params, &blob, &characteristics));
    _hidl_cb(error, resultOf(error, blob), resultOf(error, characteristics));
    return Void();
}

Return<void> Keymaster4Device::importKey(const hidl_vec<KeyParameter>& keyParams,
                                         KeyFormat keyFormat, const hidl_vec<uint8_t>& keyData,
                                         importKey_cb _hidl_cb) {
    const KmParamSet params(keyParams);
    const keymaster_blob_t key_data = blobOf(keyData);
    Output<keymaster_key_blob_t> blob;
    Output<keymaster_key_characteristics_t> characteristics;
    const ErrorCode error = toErrorCode(
        device_->import_key(&params, toKeymaster(keyFormat), &key_data, &blob, &characteristics));
    _hidl_cb(error, resultOf(error, blob), resultOf(error, characteristics));
    return Void();
}

Return<void> Keymaster4Device::importWrappedKey(const hidl_vec<uint8_t>& wrappedKeyData,
                                                const hidl_vec<uint8_t>& wrappingKeyBlob,
                                                const hidl_vec<uint8_t>& maskingKey,
                                                const hidl_vec<KeyParameter>& unwrappingParams,
                                                uint64_t passwordSid, uint64_t biometricSid,
                                                importWrappedKey_cb _hidl_cb) {
    const KmParamSet params(unwrappingParams);
    Output<keymaster_key_blob_t> blob;
    Output<keymaster_key_characteristics_t> characteristics;
    const ErrorCode error = toErrorCode(device_->import_wrapped_key(
        &params, passwordSid, biometricSid, copyOf(wrappedKeyData), copyOf(wrappingKeyBlob),
        copyOf(maskingKey), &blob, &characteristics));
    _hidl_cb(error, resultOf(error, blob), resultOf(error, characteristics));
    return Void();
}

Return<void> Keymaster4Device::getKeyCharacteristics(const hidl_vec<uint8_t>& keyBlob,
                                                     const hidl_vec<uint8_t>& clientId,
                                                     const hidl_vec<uint8_t>& appData,
                                                     getKeyCharacteristics_cb _hidl_cb) {
    const keymaster_key_blob_t blob = keyBlobOf(keyBlob);
    const keymaster_blob_t client_id = blobOf(clientId);
    const keymaster_blob_t app_data = blobOf(appData);
    Output<keymaster_key_characteristics_t> characteristics;
    const ErrorCode error = toErrorCode(device_->get_key_characteristics(
        optional(blob), optional(client_id), optional(app_data), &characteristics));
    _hidl_cb(error, resultOf(error, characteristics));
    return Void();
}

Return<void> Keymaster4Device::exportKey(KeyFormat keyFormat, const hidl_vec<uint8_t>& keyBlob,
                                         const hidl_vec<uint8_t>& clientId,
                                         const hidl_vec<uint8_t>& appData, exportKey_cb _hidl_cb) {
    const keymaster_key_blob_t blob = keyBlobOf(keyBlob);
    const keymaster_blob_t client_id = blobOf(clientId);
    const keymaster_blob_t app_data = blobOf(appData);
    Output<keymaster_blob_t> exported;
    const ErrorCode error =
        toErrorCode(device_->export_key(toKeymaster(keyFormat), optional(blob), optional(client_id),
                                        optional(app_data), &exported));
    _hidl_cb(error, resultOf(error, exported));
    return Void();
}

Return<void> Keymaster4Device::attestKey(const hidl_vec<uint8_t>& keyToAttest,
                                         const hidl_vec<KeyParameter>& attestParams,
                                         attestKey_cb _hidl_cb) {
    const keymaster_key_blob_t blob = keyBlobOf(keyToAttest);
    const KmParamSet params(attestParams);
    OutputChain chain;
    const ErrorCode error = toErrorCode(device_->attest_key(&blob, &params, &chain));
    _hidl_cb(error, resultOf(error, chain));
    return Void();
}

Return<void> Keymaster4Device::upgradeKey(const hidl_vec<uint8_t>& keyBlobToUpgrade,
                                          const hidl_vec<KeyParameter>& upgradeParams,
                                          upgradeKey_cb _hidl_cb) {
    const keymaster_key_blob_t blob = keyBlobOf(keyBlobToUpgrade);
    const KmParamSet params(upgradeParams);
    Output<keymaster_key_blob_t> upgraded;
    const ErrorCode error = toErrorCode(device_->upgrade_key(&blob, &params, &upgraded));
    _hidl_cb(error, resultOf(error, upgraded));
    return Void();
}

Return<ErrorCode> Keymaster4Device::deleteKey(const hidl_vec<uint8_t>& keyBlob) {
    const keymaster_key_blob_t blob = keyBlobOf(keyBlob);
    return toErrorCode(device_->delete_key(&blob));
}

Return<ErrorCode> Keymaster4Device::deleteAllKeys() {
    return toErrorCode(device_->delete_all_keys());
}

Return<ErrorCode> Keymaster4Device::destroyAttestationIds() {
    return toErrorCode(device_->destroy_device_ids());
}

Return<void> Keymaster4Device::begin(KeyPurpose purpose, const hidl_vec<uint8_t>& keyBlob,
                                     const hidl_vec<KeyParameter>& inParams,
                                     const HardwareAuthToken& authToken, begin_cb _hidl_cb) {
    const keymaster_key_blob_t blob = keyBlobOf(keyBlob);
    const AuthTokenParams params(inParams, authToken);
    Output<keymaster_key_param_set_t> out_params;
    uint64_t handle = 0;
    ErrorCode error = ErrorCode::MEMORY_ALLOCATION_FAILED;
    if (params.valid()) {
        error = toErrorCode(device_->begin_operation(toKeymaster(purpose), &blob, params.get(),
                                                     &out_params, &handle));
    }
    _hidl_cb(error, resultOf(error, out_params), handle);
    return Void();
}

Return<void> Keymaster4Device::update(uint64_t operationHandle,
                                      const hidl_vec<KeyParameter>& inParams,
                                      const hidl_vec<uint8_t>& input,
                                      const HardwareAuthToken& authToken,
                                      const VerificationToken& /*verificationToken*/,
                                      update_cb _hidl_cb) {
    const AuthTokenParams params(inParams, authToken);
    const keymaster_blob_t data = blobOf(input);
    uint32_t consumed = 0;
    Output<keymaster_key_param_set_t> out_params;
    Output<keymaster_blob_t> output;
    ErrorCode error = ErrorCode::MEMORY_ALLOCATION_FAILED;
    if (params.valid()) {
        error = toErrorCode(device_->update_operation(operationHandle, params.get(), &data,
                                                      &consumed, &out_params, &output));
    }
    _hidl_cb(error, consumed, resultOf(error, out_params), resultOf(error, output));
    return Void();
}

Return<void> Keymaster4Device::finish(uint64_t operationHandle,
                                      const hidl_vec<KeyParameter>& inParams,
                                      const hidl_vec<uint8_t>& input,
                                      const hidl_vec<uint8_t>& signature,
                                      const HardwareAuthToken& authToken,
                                      const VerificationToken& /*verificationToken*/,
                                      finish_cb _hidl_cb) {
    const AuthTokenParams params(inParams, authToken);
    const keymaster_blob_t data = blobOf(input);
    const keymaster_blob_t to_verify = blobOf(signature);
    Output<keymaster_key_param_set_t> out_params;
    Output<keymaster_blob_t> output;
    ErrorCode error = ErrorCode::MEMORY_ALLOCATION_FAILED;
    if (params.valid()) {
        error = toErrorCode(device_->finish_operation(operationHandle, params.get(), &data,
                                                      &to_verify, &out_params, &output));
    }
    _hidl_cb(error, resultOf(error, out_params), resultOf(error, output));
    return Void();
}

Return<ErrorCode> Keymaster4Device::abort(uint64_t operationHandle) {
    return toErrorCode(device_->abort_operation(operationHandle));
}

IKeymasterDevice* CreateKeymasterDevice() {
    return new Keymaster4Device(KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT);
}

IKeymasterDevice* CreateSbKeymasterDevice() {
    return new Keymaster4Device(enumFromBits<keymaster_security_level_t>(kSecurityLevelStrongBox));
}

}  // namespace keymaster::V4_0
