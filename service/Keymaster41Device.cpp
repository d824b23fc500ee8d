#include "Keymaster41Device.h"

#include "EnumBits.h"
#include "KeymasterHalDevice.h"
#include "PlatformTags.h"

namespace keymaster::V4_1 {
namespace {

using ::keymasterdevice::EnumArgument;
using ::keymasterdevice::enumFromBits;
using ::keymasterdevice::errorToWord;
using ::keymasterdevice::KeymasterHalDevice;
using ::keymasterdevice::kSecurityLevelStrongBox;

V4_1_ErrorCode toErrorCode(const keymaster_error_t& error) {
    return static_cast<V4_1_ErrorCode>(errorToWord(error));
}

std::unique_ptr<KeymasterHalDevice> makeCore(keymaster_security_level_t level) {
    return std::make_unique<KeymasterHalDevice>(EnumArgument(level));
}

}  // namespace

V4_1_ErrorCode convert(V4_0_ErrorCode error) {
    return static_cast<V4_1_ErrorCode>(error);
}

V4_0_ErrorCode convert(V4_1_ErrorCode error) {
    return static_cast<V4_0_ErrorCode>(error);
}

Keymaster41Device::Keymaster41Device(keymaster_security_level_t security_level)
    : Keymaster4Device(EnumArgument(security_level)) {}

Keymaster41Device::Keymaster41Device(keymaster_security_level_t security_level, MakeCore make_core)
    : Keymaster4Device(EnumArgument(security_level)) {
    // Here, so that the start-up of the base is over before there is a second core.
    notified_device_ = make_core(EnumArgument(security_level));
}

Keymaster41Device::~Keymaster41Device() = default;

Return<void> Keymaster41Device::getHardwareInfo(getHardwareInfo_cb _hidl_cb) {
    return Keymaster4Device::getHardwareInfo(_hidl_cb);
}

Return<void> Keymaster41Device::getHmacSharingParameters(getHmacSharingParameters_cb _hidl_cb) {
    return Keymaster4Device::getHmacSharingParameters(_hidl_cb);
}

Return<void> Keymaster41Device::computeSharedHmac(const hidl_vec<HmacSharingParameters>& params,
                                                  computeSharedHmac_cb _hidl_cb) {
    return Keymaster4Device::computeSharedHmac(params, _hidl_cb);
}

Return<void> Keymaster41Device::verifyAuthorization(
    uint64_t challenge, const hidl_vec<KeyParameter>& parametersToVerify,
    const HardwareAuthToken& authToken, verifyAuthorization_cb _hidl_cb) {
    return Keymaster4Device::verifyAuthorization(challenge, parametersToVerify, authToken,
                                                 _hidl_cb);
}

Return<V4_0_ErrorCode> Keymaster41Device::addRngEntropy(const hidl_vec<uint8_t>& data) {
    return Keymaster4Device::addRngEntropy(data);
}

Return<void> Keymaster41Device::generateKey(const hidl_vec<KeyParameter>& keyParams,
                                            generateKey_cb _hidl_cb) {
    return Keymaster4Device::generateKey(keyParams, _hidl_cb);
}

Return<void> Keymaster41Device::importKey(const hidl_vec<KeyParameter>& keyParams,
                                          KeyFormat keyFormat, const hidl_vec<uint8_t>& keyData,
                                          importKey_cb _hidl_cb) {
    return Keymaster4Device::importKey(keyParams, keyFormat, keyData, _hidl_cb);
}

Return<void> Keymaster41Device::importWrappedKey(const hidl_vec<uint8_t>& wrappedKeyData,
                                                 const hidl_vec<uint8_t>& wrappingKeyBlob,
                                                 const hidl_vec<uint8_t>& maskingKey,
                                                 const hidl_vec<KeyParameter>& unwrappingParams,
                                                 uint64_t passwordSid, uint64_t biometricSid,
                                                 importWrappedKey_cb _hidl_cb) {
    return Keymaster4Device::importWrappedKey(wrappedKeyData, wrappingKeyBlob, maskingKey,
                                              unwrappingParams, passwordSid, biometricSid,
                                              _hidl_cb);
}

Return<void> Keymaster41Device::getKeyCharacteristics(const hidl_vec<uint8_t>& keyBlob,
                                                      const hidl_vec<uint8_t>& clientId,
                                                      const hidl_vec<uint8_t>& appData,
                                                      getKeyCharacteristics_cb _hidl_cb) {
    return Keymaster4Device::getKeyCharacteristics(keyBlob, clientId, appData, _hidl_cb);
}

Return<void> Keymaster41Device::exportKey(KeyFormat keyFormat, const hidl_vec<uint8_t>& keyBlob,
                                          const hidl_vec<uint8_t>& clientId,
                                          const hidl_vec<uint8_t>& appData, exportKey_cb _hidl_cb) {
    return Keymaster4Device::exportKey(keyFormat, keyBlob, clientId, appData, _hidl_cb);
}

Return<void> Keymaster41Device::attestKey(const hidl_vec<uint8_t>& keyToAttest,
                                          const hidl_vec<KeyParameter>& attestParams,
                                          attestKey_cb _hidl_cb) {
    return Keymaster4Device::attestKey(keyToAttest, attestParams, _hidl_cb);
}

Return<void> Keymaster41Device::upgradeKey(const hidl_vec<uint8_t>& keyBlobToUpgrade,
                                           const hidl_vec<KeyParameter>& upgradeParams,
                                           upgradeKey_cb _hidl_cb) {
    return Keymaster4Device::upgradeKey(keyBlobToUpgrade, upgradeParams, _hidl_cb);
}

Return<V4_0_ErrorCode> Keymaster41Device::deleteKey(const hidl_vec<uint8_t>& keyBlob) {
    return Keymaster4Device::deleteKey(keyBlob);
}

Return<V4_0_ErrorCode> Keymaster41Device::deleteAllKeys() {
    return Keymaster4Device::deleteAllKeys();
}

Return<V4_0_ErrorCode> Keymaster41Device::destroyAttestationIds() {
    return Keymaster4Device::destroyAttestationIds();
}

Return<void> Keymaster41Device::begin(KeyPurpose purpose, const hidl_vec<uint8_t>& keyBlob,
                                      const hidl_vec<KeyParameter>& inParams,
                                      const HardwareAuthToken& authToken, begin_cb _hidl_cb) {
    return Keymaster4Device::begin(purpose, keyBlob, inParams, authToken, _hidl_cb);
}

Return<void> Keymaster41Device::update(uint64_t operationHandle,
                                       const hidl_vec<KeyParameter>& inParams,
                                       const hidl_vec<uint8_t>& input,
                                       const HardwareAuthToken& authToken,
                                       const VerificationToken& verificationToken,
                                       update_cb _hidl_cb) {
    return Keymaster4Device::update(operationHandle, inParams, input, authToken, verificationToken,
                                    _hidl_cb);
}

Return<void> Keymaster41Device::finish(uint64_t operationHandle,
                                       const hidl_vec<KeyParameter>& inParams,
                                       const hidl_vec<uint8_t>& input,
                                       const hidl_vec<uint8_t>& signature,
                                       const HardwareAuthToken& authToken,
                                       const VerificationToken& verificationToken,
                                       finish_cb _hidl_cb) {
    return Keymaster4Device::finish(operationHandle, inParams, input, signature, authToken,
                                    verificationToken, _hidl_cb);
}

Return<V4_0_ErrorCode> Keymaster41Device::abort(uint64_t operationHandle) {
    return Keymaster4Device::abort(operationHandle);
}

Return<V4_1_ErrorCode> Keymaster41Device::deviceLocked(
    bool passwordOnly, const VerificationToken& /*verificationToken*/) {
    if (!notified_device_) return V4_1_ErrorCode::UNIMPLEMENTED;
    return toErrorCode(notified_device_->set_device_locked(passwordOnly));
}

Return<V4_1_ErrorCode> Keymaster41Device::earlyBootEnded() {
    if (!notified_device_) return V4_1_ErrorCode::UNIMPLEMENTED;
    return toErrorCode(notified_device_->set_early_boot_ended());
}

IKeymasterDevice* CreateKeymasterDevice() {
    return new Keymaster41Device(KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT, makeCore);
}

IKeymasterDevice* CreateSbKeymasterDevice() {
    return new Keymaster41Device(enumFromBits<keymaster_security_level_t>(kSecurityLevelStrongBox),
                                 makeCore);
}

}  // namespace keymaster::V4_1
