// The interface android.hardware.keymaster@4.1::IKeymasterDevice. Generated interfaces repeat the
// callback types and the methods of the one that they extend, and so does this.
#pragma once

#include <android/hardware/keymaster/4.0/IKeymasterDevice.h>
#include <android/hardware/keymaster/4.1/types.h>

namespace android::hardware::keymaster::V4_1 {

struct IKeymasterDevice : public V4_0::IKeymasterDevice {
    typedef ::android::hardware::details::i_tag _hidl_tag;
    static const char* descriptor;

    using getHardwareInfo_cb =
        std::function<void(V4_0::SecurityLevel securityLevel, const hidl_string& keymasterName,
                           const hidl_string& keymasterAuthorName)>;
    using getHmacSharingParameters_cb =
        std::function<void(V4_0::ErrorCode error, const V4_0::HmacSharingParameters& params)>;
    using computeSharedHmac_cb =
        std::function<void(V4_0::ErrorCode error, const hidl_vec<uint8_t>& sharingCheck)>;
    using verifyAuthorization_cb =
        std::function<void(V4_0::ErrorCode error, const V4_0::VerificationToken& token)>;
    using generateKey_cb =
        std::function<void(V4_0::ErrorCode error, const hidl_vec<uint8_t>& keyBlob,
                           const V4_0::KeyCharacteristics& keyCharacteristics)>;
    using importKey_cb = std::function<void(V4_0::ErrorCode error, const hidl_vec<uint8_t>& keyBlob,
                                            const V4_0::KeyCharacteristics& keyCharacteristics)>;
    using importWrappedKey_cb =
        std::function<void(V4_0::ErrorCode error, const hidl_vec<uint8_t>& keyBlob,
                           const V4_0::KeyCharacteristics& keyCharacteristics)>;
    using getKeyCharacteristics_cb = std::function<void(
        V4_0::ErrorCode error, const V4_0::KeyCharacteristics& keyCharacteristics)>;
    using exportKey_cb =
        std::function<void(V4_0::ErrorCode error, const hidl_vec<uint8_t>& keyMaterial)>;
    using attestKey_cb =
        std::function<void(V4_0::ErrorCode error, const hidl_vec<hidl_vec<uint8_t>>& certChain)>;
    using upgradeKey_cb =
        std::function<void(V4_0::ErrorCode error, const hidl_vec<uint8_t>& upgradedKeyBlob)>;
    using begin_cb =
        std::function<void(V4_0::ErrorCode error, const hidl_vec<V4_0::KeyParameter>& outParams,
                           uint64_t operationHandle)>;
    using update_cb = std::function<void(V4_0::ErrorCode error, uint32_t inputConsumed,
                                         const hidl_vec<V4_0::KeyParameter>& outParams,
                                         const hidl_vec<uint8_t>& output)>;
    using finish_cb =
        std::function<void(V4_0::ErrorCode error, const hidl_vec<V4_0::KeyParameter>& outParams,
                           const hidl_vec<uint8_t>& output)>;

    bool isRemote() const override;
    virtual Return<void> getHardwareInfo(getHardwareInfo_cb _hidl_cb) = 0;
    virtual Return<void> getHmacSharingParameters(getHmacSharingParameters_cb _hidl_cb) = 0;
    virtual Return<void> computeSharedHmac(const hidl_vec<V4_0::HmacSharingParameters>& params,
                                           computeSharedHmac_cb _hidl_cb) = 0;
    virtual Return<void> verifyAuthorization(uint64_t operationHandle,
                                             const hidl_vec<V4_0::KeyParameter>& parametersToVerify,
                                             const V4_0::HardwareAuthToken& authToken,
                                             verifyAuthorization_cb _hidl_cb) = 0;
    virtual Return<V4_0::ErrorCode> addRngEntropy(const hidl_vec<uint8_t>& data) = 0;
    virtual Return<void> generateKey(const hidl_vec<V4_0::KeyParameter>& keyParams,
                                     generateKey_cb _hidl_cb) = 0;
    virtual Return<void> importKey(const hidl_vec<V4_0::KeyParameter>& keyParams,
                                   V4_0::KeyFormat keyFormat, const hidl_vec<uint8_t>& keyData,
                                   importKey_cb _hidl_cb) = 0;
    virtual Return<void> importWrappedKey(const hidl_vec<uint8_t>& wrappedKeyData,
                                          const hidl_vec<uint8_t>& wrappingKeyBlob,
                                          const hidl_vec<uint8_t>& maskingKey,
                                          const hidl_vec<V4_0::KeyParameter>& unwrappingParams,
                                          uint64_t passwordSid, uint64_t biometricSid,
                                          importWrappedKey_cb _hidl_cb) = 0;
    virtual Return<void> getKeyCharacteristics(const hidl_vec<uint8_t>& keyBlob,
                                               const hidl_vec<uint8_t>& clientId,
                                               const hidl_vec<uint8_t>& appData,
                                               getKeyCharacteristics_cb _hidl_cb) = 0;
    virtual Return<void> exportKey(V4_0::KeyFormat keyFormat, const hidl_vec<uint8_t>& keyBlob,
                                   const hidl_vec<uint8_t>& clientId,
                                   const hidl_vec<uint8_t>& appData, exportKey_cb _hidl_cb) = 0;
    virtual Return<void> attestKey(const hidl_vec<uint8_t>& keyToAttest,
                                   const hidl_vec<V4_0::KeyParameter>& attestParams,
                                   attestKey_cb _hidl_cb) = 0;
    virtual Return<void> upgradeKey(const hidl_vec<uint8_t>& keyBlobToUpgrade,
                                    const hidl_vec<V4_0::KeyParameter>& upgradeParams,
                                    upgradeKey_cb _hidl_cb) = 0;
    virtual Return<V4_0::ErrorCode> deleteKey(const hidl_vec<uint8_t>& keyBlob) = 0;
    virtual Return<V4_0::ErrorCode> deleteAllKeys() = 0;
    virtual Return<V4_0::ErrorCode> destroyAttestationIds() = 0;
    virtual Return<void> begin(V4_0::KeyPurpose purpose, const hidl_vec<uint8_t>& keyBlob,
                               const hidl_vec<V4_0::KeyParameter>& inParams,
                               const V4_0::HardwareAuthToken& authToken, begin_cb _hidl_cb) = 0;
    virtual Return<void> update(uint64_t operationHandle,
                                const hidl_vec<V4_0::KeyParameter>& inParams,
                                const hidl_vec<uint8_t>& input,
                                const V4_0::HardwareAuthToken& authToken,
                                const V4_0::VerificationToken& verificationToken,
                                update_cb _hidl_cb) = 0;
    virtual Return<void> finish(uint64_t operationHandle,
                                const hidl_vec<V4_0::KeyParameter>& inParams,
                                const hidl_vec<uint8_t>& input, const hidl_vec<uint8_t>& signature,
                                const V4_0::HardwareAuthToken& authToken,
                                const V4_0::VerificationToken& verificationToken,
                                finish_cb _hidl_cb) = 0;
    virtual Return<V4_0::ErrorCode> abort(uint64_t operationHandle) = 0;
    virtual Return<V4_1::ErrorCode> deviceLocked(
        bool passwordOnly, const V4_0::VerificationToken& verificationToken) = 0;
    virtual Return<V4_1::ErrorCode> earlyBootEnded() = 0;
    status_t registerAsService(const std::string& serviceName = "default");
    static sp<IKeymasterDevice> getService(const std::string& serviceName = "default",
                                           bool getStub = false);
};

}  // namespace android::hardware::keymaster::V4_1
