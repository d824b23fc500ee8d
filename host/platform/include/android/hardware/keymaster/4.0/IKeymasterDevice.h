#pragma once

// Stand-in for the interface android.hardware.keymaster@4.0::IKeymasterDevice, methods in the
// published order. Services are those of this process (hidl/ServiceManagement.h);
// registerForNotifications is left out.

#include <android/hardware/keymaster/4.0/types.h>
#include <android/hidl/base/1.0/IBase.h>

#include <functional>
#include <string>

namespace android::hardware::keymaster::V4_0 {

struct IKeymasterDevice : public ::android::hidl::base::V1_0::IBase {
    typedef ::android::hardware::details::i_tag _hidl_tag;
    inline static const char* descriptor = "android.hardware.keymaster@4.0::IKeymasterDevice";

    // What a callback is given lives until it returns; it runs exactly once, before the method
    // returns.
    using getHardwareInfo_cb =
        std::function<void(SecurityLevel securityLevel, const hidl_string& keymasterName,
                           const hidl_string& keymasterAuthorName)>;
    using getHmacSharingParameters_cb =
        std::function<void(ErrorCode error, const HmacSharingParameters& params)>;
    using computeSharedHmac_cb =
        std::function<void(ErrorCode error, const hidl_vec<uint8_t>& sharingCheck)>;
    using verifyAuthorization_cb =
        std::function<void(ErrorCode error, const VerificationToken& token)>;
    using generateKey_cb = std::function<void(ErrorCode error, const hidl_vec<uint8_t>& keyBlob,
                                              const KeyCharacteristics& keyCharacteristics)>;
    using importKey_cb = generateKey_cb;
    using importWrappedKey_cb = generateKey_cb;
    using getKeyCharacteristics_cb =
        std::function<void(ErrorCode error, const KeyCharacteristics& keyCharacteristics)>;
    using exportKey_cb = std::function<void(ErrorCode error, const hidl_vec<uint8_t>& keyMaterial)>;
    using attestKey_cb =
        std::function<void(ErrorCode error, const hidl_vec<hidl_vec<uint8_t>>& certChain)>;
    using upgradeKey_cb =
        std::function<void(ErrorCode error, const hidl_vec<uint8_t>& upgradedKeyBlob)>;
    using begin_cb = std::function<void(ErrorCode error, const hidl_vec<KeyParameter>& outParams,
                                        uint64_t operationHandle)>;
    using update_cb = std::function<void(ErrorCode error, uint32_t inputConsumed,
                                         const hidl_vec<KeyParameter>& outParams,
                                         const hidl_vec<uint8_t>& output)>;
    using finish_cb = std::function<void(ErrorCode error, const hidl_vec<KeyParameter>& outParams,
                                         const hidl_vec<uint8_t>& output)>;

    bool isRemote() const override { return false; }

    virtual Return<void> getHardwareInfo(getHardwareInfo_cb _hidl_cb) = 0;
    virtual Return<void> getHmacSharingParameters(getHmacSharingParameters_cb _hidl_cb) = 0;
    virtual Return<void> computeSharedHmac(const hidl_vec<HmacSharingParameters>& params,
                                           computeSharedHmac_cb _hidl_cb) = 0;
    virtual Return<void> verifyAuthorization(uint64_t operationHandle,
                                             const hidl_vec<KeyParameter>& parametersToVerify,
                                             const HardwareAuthToken& authToken,
                                             verifyAuthorization_cb _hidl_cb) = 0;
    virtual Return<ErrorCode> addRngEntropy(const hidl_vec<uint8_t>& data) = 0;
    virtual Return<void> generateKey(const hidl_vec<KeyParameter>& keyParams,
                                     generateKey_cb _hidl_cb) = 0;
    virtual Return<void> importKey(const hidl_vec<KeyParameter>& keyParams, KeyFormat keyFormat,
                                   const hidl_vec<uint8_t>& keyData, importKey_cb _hidl_cb) = 0;
    virtual Return<void> importWrappedKey(const hidl_vec<uint8_t>& wrappedKeyData,
                                          const hidl_vec<uint8_t>& wrappingKeyBlob,
                                          const hidl_vec<uint8_t>& maskingKey,
                                          const hidl_vec<KeyParameter>& unwrappingParams,
                                          uint64_t passwordSid, uint64_t biometricSid,
                                          importWrappedKey_cb _hidl_cb) = 0;
    virtual Return<void> getKeyCharacteristics(const hidl_vec<uint8_t>& keyBlob,
                                               const hidl_vec<uint8_t>& clientId,
                                               const hidl_vec<uint8_t>& appData,
                                               getKeyCharacteristics_cb _hidl_cb) = 0;
    virtual Return<void> exportKey(KeyFormat keyFormat, const hidl_vec<uint8_t>& keyBlob,
                                   const hidl_vec<uint8_t>& clientId,
                                   const hidl_vec<uint8_t>& appData, exportKey_cb _hidl_cb) = 0;
    virtual Return<void> attestKey(const hidl_vec<uint8_t>& keyToAttest,
                                   const hidl_vec<KeyParameter>& attestParams,
                                   attestKey_cb _hidl_cb) = 0;
    virtual Return<void> upgradeKey(const hidl_vec<uint8_t>& keyBlobToUpgrade,
                                    const hidl_vec<KeyParameter>& upgradeParams,
                                    upgradeKey_cb _hidl_cb) = 0;
    virtual Return<ErrorCode> deleteKey(const hidl_vec<uint8_t>& keyBlob) = 0;
    virtual Return<ErrorCode> deleteAllKeys() = 0;
    virtual Return<ErrorCode> destroyAttestationIds() = 0;
    virtual Return<void> begin(KeyPurpose purpose, const hidl_vec<uint8_t>& keyBlob,
                               const hidl_vec<KeyParameter>& inParams,
                               const HardwareAuthToken& authToken, begin_cb _hidl_cb) = 0;
    virtual Return<void> update(uint64_t operationHandle, const hidl_vec<KeyParameter>& inParams,
                                const hidl_vec<uint8_t>& input, const HardwareAuthToken& authToken,
                                const VerificationToken& verificationToken, update_cb _hidl_cb) = 0;
    virtual Return<void> finish(uint64_t operationHandle, const hidl_vec<KeyParameter>& inParams,
                                const hidl_vec<uint8_t>& input, const hidl_vec<uint8_t>& signature,
                                const HardwareAuthToken& authToken,
                                const VerificationToken& verificationToken, finish_cb _hidl_cb) = 0;
    virtual Return<ErrorCode> abort(uint64_t operationHandle) = 0;

    // The other methods of the base keep its defaults.
    Return<void> interfaceChain(interfaceChain_cb _hidl_cb) override;
    Return<void> interfaceDescriptor(interfaceDescriptor_cb _hidl_cb) override;

    // Null if `parent` is null or is no keymaster 4.0 device.
    static Return<sp<IKeymasterDevice>> castFrom(const sp<IKeymasterDevice>& parent,
                                                 bool emitError = false);
    static Return<sp<IKeymasterDevice>> castFrom(
        const sp<::android::hidl::base::V1_0::IBase>& parent, bool emitError = false);

    // Objects registered under a name by this process; null where there is none. getStub is
    // ignored.
    static sp<IKeymasterDevice> getService(const std::string& serviceName = "default",
                                           bool getStub = false);
    static sp<IKeymasterDevice> tryGetService(const std::string& serviceName = "default",
                                              bool getStub = false);
    [[nodiscard]] status_t registerAsService(const std::string& serviceName = "default");
};

std::string toString(const sp<IKeymasterDevice>& object);

}  // namespace android::hardware::keymaster::V4_0
