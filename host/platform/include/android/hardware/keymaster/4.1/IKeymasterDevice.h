#pragma once

// Stand-in for the interface android.hardware.keymaster@4.1::IKeymasterDevice: that of 4.0 and two
// notifications. Services as in 4.0.

#include <android/hardware/keymaster/4.0/IKeymasterDevice.h>
#include <android/hardware/keymaster/4.1/types.h>

namespace android::hardware::keymaster::V4_1 {

struct IKeymasterDevice : public ::android::hardware::keymaster::V4_0::IKeymasterDevice {
    typedef ::android::hardware::details::i_tag _hidl_tag;
    inline static const char* descriptor = "android.hardware.keymaster@4.1::IKeymasterDevice";

    bool isRemote() const override { return false; }

    // A trusted environment is given a zeroed token and uses its own clock.
    virtual Return<V4_1::ErrorCode> deviceLocked(
        bool passwordOnly, const V4_0::VerificationToken& verificationToken) = 0;
    virtual Return<V4_1::ErrorCode> earlyBootEnded() = 0;

    Return<void> interfaceChain(interfaceChain_cb _hidl_cb) override;
    Return<void> interfaceDescriptor(interfaceDescriptor_cb _hidl_cb) override;

    // Null if `parent` is null or is no keymaster 4.1 device.
    static Return<sp<IKeymasterDevice>> castFrom(const sp<IKeymasterDevice>& parent,
                                                 bool emitError = false);
    static Return<sp<IKeymasterDevice>> castFrom(const sp<V4_0::IKeymasterDevice>& parent,
                                                 bool emitError = false);
    static Return<sp<IKeymasterDevice>> castFrom(
        const sp<::android::hidl::base::V1_0::IBase>& parent, bool emitError = false);

    // As in 4.0; an object is registered for both interfaces.
    static sp<IKeymasterDevice> getService(const std::string& serviceName = "default",
                                           bool getStub = false);
    static sp<IKeymasterDevice> tryGetService(const std::string& serviceName = "default",
                                              bool getStub = false);
    [[nodiscard]] status_t registerAsService(const std::string& serviceName = "default");
};

std::string toString(const sp<IKeymasterDevice>& object);

}  // namespace android::hardware::keymaster::V4_1
