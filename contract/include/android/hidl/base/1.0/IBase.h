// The root of all HIDL interfaces.
#pragma once

#include <hidl/HidlSupport.h>
#include <hidl/Status.h>

#include <functional>

namespace android::hidl::base::V1_0 {

struct DebugInfo;

struct IBase : virtual public ::android::RefBase {
    typedef ::android::hardware::details::i_tag _hidl_tag;
    static const char* descriptor;

    using interfaceChain_cb = std::function<void(
        const ::android::hardware::hidl_vec<::android::hardware::hidl_string>& descriptors)>;
    using interfaceDescriptor_cb =
        std::function<void(const ::android::hardware::hidl_string& descriptor)>;
    using getHashChain_cb =
        std::function<void(const ::android::hardware::hidl_vec<
                           ::android::hardware::hidl_array<uint8_t, 32>>& hashchain)>;
    using getDebugInfo_cb = std::function<void(const DebugInfo& info)>;

    virtual bool isRemote() const;
    virtual ::android::hardware::Return<void> interfaceChain(interfaceChain_cb _hidl_cb);
    virtual ::android::hardware::Return<void> debug(
        const ::android::hardware::hidl_handle& fd,
        const ::android::hardware::hidl_vec<::android::hardware::hidl_string>& options);
    virtual ::android::hardware::Return<void> interfaceDescriptor(interfaceDescriptor_cb _hidl_cb);
    virtual ::android::hardware::Return<void> getHashChain(getHashChain_cb _hidl_cb);
    virtual ::android::hardware::Return<void> setHALInstrumentation();
    virtual ::android::hardware::Return<bool> linkToDeath(
        const ::android::sp<::android::hardware::hidl_death_recipient>& recipient, uint64_t cookie);
    virtual ::android::hardware::Return<void> ping();
    virtual ::android::hardware::Return<void> getDebugInfo(getDebugInfo_cb _hidl_cb);
    virtual ::android::hardware::Return<void> notifySyspropsChanged();
    virtual ::android::hardware::Return<bool> unlinkToDeath(
        const ::android::sp<::android::hardware::hidl_death_recipient>& recipient);
};

}  // namespace android::hidl::base::V1_0
