// The keymaster 4.0 service object, as the keymaster service process publishes it.
#pragma once

#include <android/hardware/keymaster/4.0/IKeymasterDevice.h>
#include <hardware/keymaster_defs.h>

#include <memory>

namespace keymasterdevice {
class KeymasterHalDevice;
}

namespace keymaster::V4_0 {

using ::android::hardware::hidl_vec;
using ::android::hardware::Return;
using ::android::hardware::keymaster::V4_0::ErrorCode;
using ::android::hardware::keymaster::V4_0::HardwareAuthToken;
using ::android::hardware::keymaster::V4_0::HmacSharingParameters;
using ::android::hardware::keymaster::V4_0::IKeymasterDevice;
using ::android::hardware::keymaster::V4_0::KeyFormat;
using ::android::hardware::keymaster::V4_0::KeyParameter;
using ::android::hardware::keymaster::V4_0::KeyPurpose;
using ::android::hardware::keymaster::V4_0::VerificationToken;

// Serves one security level through one device core. Each method converts its arguments, calls the
// device core once, converts the results, calls back once and releases what the device core handed
// out. What it returns or calls back with is the device core's error, unchanged, and after an error
// empty outputs. Views of the caller's and the device core's memory are passed on in both
// directions: the arguments of a callback are valid until it returns. Throws std::bad_alloc where
// there is no memory for a conversion. The object holds no lock: one thread at a time may call it.
class Keymaster4Device : public IKeymasterDevice {
  public:
    // Starts up: waits without limit for the platform's version properties, asks the secure
    // application whether it supports days in patch levels, and tells it the versions. If one of
    // these fails, a fatal line in the log ends the process. Any `security_level` but
    // KM_SECURITY_LEVEL_STRONGBOX is served with the commands of the trusted environment.
    explicit Keymaster4Device(keymaster_security_level_t security_level);
    ~Keymaster4Device() override;
    Keymaster4Device(const Keymaster4Device&) = delete;
    Keymaster4Device& operator=(const Keymaster4Device&) = delete;

    // Calls back only at the levels of the trusted environment and of StrongBox.
    Return<void> getHardwareInfo(getHardwareInfo_cb _hidl_cb) override;
    Return<void> getHmacSharingParameters(getHmacSharingParameters_cb _hidl_cb) override;
    // Seeds are 32 bytes: a shorter one is followed by zeros, of a longer one the first 32 are
    // taken.
    Return<void> computeSharedHmac(const hidl_vec<HmacSharingParameters>& params,
                                   computeSharedHmac_cb _hidl_cb) override;
    // Only the challenge reaches the secure application. An answer for another level than those two
    // gives UNKNOWN_ERROR, with challenge, timestamp and mac filled all the same.
    Return<void> verifyAuthorization(uint64_t challenge,
                                     const hidl_vec<KeyParameter>& parametersToVerify,
                                     const HardwareAuthToken& authToken,
                                     verifyAuthorization_cb _hidl_cb) override;
    // Accepted and ignored: the secure application has a random source of its own.
    Return<ErrorCode> addRngEntropy(const hidl_vec<uint8_t>& data) override;
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
    Return<ErrorCode> deleteKey(const hidl_vec<uint8_t>& keyBlob) override;
    Return<ErrorCode> deleteAllKeys() override;
    Return<ErrorCode> destroyAttestationIds() override;
    // Parameters go down with the auth token behind them, as a KM_TAG_AUTH_TOKEN (AuthTokenParams).
    // The verification token stays here. After a failed update what was consumed has no meaning.
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
    Return<ErrorCode> abort(uint64_t operationHandle) override;

  private:
    const std::unique_ptr<::keymasterdevice::KeymasterHalDevice> device_;
    const uint32_t security_level_;  // a keymaster_security_level_t, perhaps without an enumerator
};

// A new, started, not yet published service object for the trusted environment, and one for
// StrongBox. Never null: a start-up that fails ends the process. The object's reference count is 0;
// the caller takes it into a strong pointer, which releases it.
[[nodiscard]] IKeymasterDevice* CreateKeymasterDevice();
[[nodiscard]] IKeymasterDevice* CreateSbKeymasterDevice();

}  // namespace keymaster::V4_0
