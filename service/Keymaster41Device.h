// The keymaster 4.1 service object: the 4.0 object with the two notifications of 4.1.
#pragma once

#include <android/hardware/keymaster/4.1/IKeymasterDevice.h>

#include <memory>

#include "Keymaster4Device.h"

namespace keymaster::V4_1 {

using ::android::hardware::hidl_vec;
using ::android::hardware::Return;
using ::android::hardware::keymaster::V4_0::HardwareAuthToken;
using ::android::hardware::keymaster::V4_0::HmacSharingParameters;
using ::android::hardware::keymaster::V4_0::KeyFormat;
using ::android::hardware::keymaster::V4_0::KeyParameter;
using ::android::hardware::keymaster::V4_0::KeyPurpose;
using ::android::hardware::keymaster::V4_0::VerificationToken;
using ::android::hardware::keymaster::V4_1::IKeymasterDevice;

using Interface41 = IKeymasterDevice;
using V4_0_ErrorCode = ::android::hardware::keymaster::V4_0::ErrorCode;
using V4_1_ErrorCode = ::android::hardware::keymaster::V4_1::ErrorCode;

// The same number in the other version's type, also where that version has no name for it.
[[nodiscard]] V4_1_ErrorCode convert(V4_0_ErrorCode error);
[[nodiscard]] V4_0_ErrorCode convert(V4_1_ErrorCode error);

// Serves every 4.0 method by handing it to the 4.0 object that it contains, whose contract it
// shares. The notifications go through a device core of their own, never through the base's.
class Keymaster41Device : public IKeymasterDevice, public V4_0::Keymaster4Device {
  public:
    // Both bases may declare the callback types; they are the same.
    using Interface41::attestKey_cb;
    using Interface41::begin_cb;
    using Interface41::computeSharedHmac_cb;
    using Interface41::exportKey_cb;
    using Interface41::finish_cb;
    using Interface41::generateKey_cb;
    using Interface41::getHardwareInfo_cb;
    using Interface41::getHmacSharingParameters_cb;
    using Interface41::getKeyCharacteristics_cb;
    using Interface41::importKey_cb;
    using Interface41::importWrappedKey_cb;
    using Interface41::update_cb;
    using Interface41::upgradeKey_cb;
    using Interface41::verifyAuthorization_cb;

    // Makes a device core for a security level; null is allowed.
    using MakeCore =
        std::unique_ptr<::keymasterdevice::KeymasterHalDevice> (*)(keymaster_security_level_t);

    // Starts up as the 4.0 object does, with its fatal errors. There is no device core for the
    // notifications, so both return UNIMPLEMENTED and send nothing.
    explicit Keymaster41Device(keymaster_security_level_t security_level);
    // Starts up, and then has `make_core` make the device core for the notifications.
    Keymaster41Device(keymaster_security_level_t security_level, MakeCore make_core);
    ~Keymaster41Device() override;
    Keymaster41Device(const Keymaster41Device&) = delete;
    Keymaster41Device& operator=(const Keymaster41Device&) = delete;

    Return<void> getHardwareInfo(getHardwareInfo_cb _hidl_cb) override;
    Return<void> getHmacSharingParameters(getHmacSharingParameters_cb _hidl_cb) override;
    Return<void> computeSharedHmac(const hidl_vec<HmacSharingParameters>& params,
                                   computeSharedHmac_cb _hidl_cb) override;
    Return<void> verifyAuthorization(uint64_t challenge,
                                     const hidl_vec<KeyParameter>& parametersToVerify,
                                     const HardwareAuthToken& authToken,
                                     verifyAuthorization_cb _hidl_cb) override;
    Return<V4_0_ErrorCode> addRngEntropy(const hidl_vec<uint8_t>& data) override;
    Return<void> generateKey(const hidl_vec<KeyParameter>& keyParams,
                             generateKey_cb _hidl_cb) override;
    Return<void> importKey(const hidl_vec<KeyParameter>& keyParams, KeyFormat keyFormat,
                           const hidl_vec<uint8_t>& keyData, importKey_cb _hidl_cb) override;
    Return<void> importWrappedKey(const hidl_vec<uint8_t>& wrappedKeyData,
                                  const hidl_vec<uint8_t>& wrappingKeyBlob,
                                  const hidl_vec<uint8_t>& maskingKey,
                                  const hidl_vec<KeyParameter>& unwrappingParams,
                                  uint64_t passwordSid, uint64_t biometricSid,
                                  importWrappedKey_cb _hidl_cb) override;
    Return<void> getKeyCharacteristics(const hidl_vec<uint8_t>& keyBlob,
                                       const hidl_vec<uint8_t>& clientId,
                                       const hidl_vec<uint8_t>& appData,
                                       getKeyCharacteristics_cb _hidl_cb) override;
    Return<void> exportKey(KeyFormat keyFormat, const hidl_vec<uint8_t>& keyBlob,
                           const hidl_vec<uint8_t>& clientId, const hidl_vec<uint8_t>& appData,
                           exportKey_cb _hidl_cb) override;
    Return<void> attestKey(const hidl_vec<uint8_t>& keyToAttest,
                           const hidl_vec<KeyParameter>& attestParams,
                           attestKey_cb _hidl_cb) override;
    Return<void> upgradeKey(const hidl_vec<uint8_t>& keyBlobToUpgrade,
                            const hidl_vec<KeyParameter>& upgradeParams,
                            upgradeKey_cb _hidl_cb) override;
    Return<V4_0_ErrorCode> deleteKey(const hidl_vec<uint8_t>& keyBlob) override;
    Return<V4_0_ErrorCode> deleteAllKeys() override;
    Return<V4_0_ErrorCode> destroyAttestationIds() override;
    Return<void> begin(KeyPurpose purpose, const hidl_vec<uint8_t>& keyBlob,
                       const hidl_vec<KeyParameter>& inParams, const HardwareAuthToken& authToken,
                       begin_cb _hidl_cb) override;
    Return<void> update(uint64_t operationHandle, const hidl_vec<KeyParameter>& inParams,
                        const hidl_vec<uint8_t>& input, const HardwareAuthToken& authToken,
                        const VerificationToken& verificationToken, update_cb _hidl_cb) override;
    Return<void> finish(uint64_t operationHandle, const hidl_vec<KeyParameter>& inParams,
                        const hidl_vec<uint8_t>& input, const hidl_vec<uint8_t>& signature,
                        const HardwareAuthToken& authToken,
                        const VerificationToken& verificationToken, finish_cb _hidl_cb) override;
    Return<V4_0_ErrorCode> abort(uint64_t operationHandle) override;

    // Keys that ask for an unlocked device stop working until it is unlocked, with the password
    // only if `passwordOnly`. The verification token is not used: the secure application has its
    // own clock.
    Return<V4_1_ErrorCode> deviceLocked(bool passwordOnly,
                                        const VerificationToken& verificationToken) override;
    // Keys for early boot stop working until the next boot.
    Return<V4_1_ErrorCode> earlyBootEnded() override;

  private:
    // Set by the constructor only.
    std::unique_ptr<::keymasterdevice::KeymasterHalDevice> notified_device_;
};

// A new, started, not yet published service object for the trusted environment, and one for
// StrongBox, each with a second device core for the notifications. Never null: a start-up that
// fails ends the process. The object's reference count is 0; the caller takes it into a strong
// pointer, which releases it.
[[nodiscard]] IKeymasterDevice* CreateKeymasterDevice();
[[nodiscard]] IKeymasterDevice* CreateSbKeymasterDevice();

}  // namespace keymaster::V4_1
