#pragma once

// Stand-in for the root of all HIDL interfaces, for objects that live in the caller's process.

#include <android/hidl/base/1.0/types.h>
#include <hidl/HidlSupport.h>
#include <hidl/Status.h>

#include <functional>
#include <string>

namespace android::hidl::base::V1_0 {

struct IBase : virtual public ::android::RefBase {
    typedef ::android::hardware::details::i_tag _hidl_tag;
    inline static const char* descriptor = "android.hidl.base@1.0::IBase";

    using interfaceChain_cb = std::function<void(
        const ::android::hardware::hidl_vec<::android::hardware::hidl_string>& descriptors)>;
    using interfaceDescriptor_cb =
        std::function<void(const ::android::hardware::hidl_string& descriptor)>;
    using getHashChain_cb =
        std::function<void(const ::android::hardware::hidl_vec<
                           ::android::hardware::hidl_array<uint8_t, 32>>& hashchain)>;
    using getDebugInfo_cb = std::function<void(const DebugInfo& info)>;

    virtual bool isRemote() const;
    // The descriptors from the most derived interface to this one.
    virtual ::android::hardware::Return<void> interfaceChain(interfaceChain_cb _hidl_cb);
    virtual ::android::hardware::Return<void> debug(
        const ::android::hardware::hidl_handle& fd,
        const ::android::hardware::hidl_vec<::android::hardware::hidl_string>& options);
    virtual ::android::hardware::Return<void> interfaceDescriptor(interfaceDescriptor_cb _hidl_cb);
    // Always empty here: a stand-in has no frozen definition to hash.
    virtual ::android::hardware::Return<void> getHashChain(getHashChain_cb _hidl_cb);
    virtual ::android::hardware::Return<void> setHALInstrumentation();
    virtual ::android::hardware::Return<bool> linkToDeath(
        const ::android::sp<::android::hardware::hidl_death_recipient>& recipient, uint64_t cookie);
    virtual ::android::hardware::Return<void> ping();
    virtual ::android::hardware::Return<void> getDebugInfo(getDebugInfo_cb _hidl_cb);
    virtual ::android::hardware::Return<void> notifySyspropsChanged();
    virtual ::android::hardware::Return<bool> unlinkToDeath(
        const ::android::sp<::android::hardware::hidl_death_recipient>& recipient);

    static ::android::hardware::Return<::android::sp<IBase>> castFrom(
        const ::android::sp<IBase>& parent, bool emitError = false);
};

// "[class or subclass of <descriptor>]@local", or "@remote".
std::string toString(const ::android::sp<IBase>& object);

}  // namespace android::hidl::base::V1_0

namespace android::hardware::details {

// Whether `object` implements the interface of that descriptor, by its own interface chain. A
// failed call is reported if emitError is set, and otherwise means no.
Return<bool> canCastInterface(hidl::base::V1_0::IBase* object, const char* descriptor,
                              bool emitError);

std::string describeInterface(const char* descriptor, const hidl::base::V1_0::IBase* object);

// Null if `parent` is null or does not implement the interface.
template <typename Child, typename Parent>
Return<sp<Child>> castInterface(const sp<Parent>& parent, bool emitError) {
    if (parent == nullptr) return sp<Child>();
    const Return<bool> can = canCastInterface(parent.get(), Child::descriptor, emitError);
    if (!can.isOk()) return StatusOf<bool, sp<Child>>(can);
    return can ? sp<Child>(static_cast<Child*>(parent.get())) : sp<Child>();
}

}  // namespace android::hardware::details
