#include <android/hidl/base/1.0/IBase.h>
#include <utils/misc.h>

namespace android::hidl::base::V1_0 {

using ::android::hardware::hidl_array;
using ::android::hardware::hidl_death_recipient;
using ::android::hardware::hidl_handle;
using ::android::hardware::hidl_string;
using ::android::hardware::hidl_vec;
using ::android::hardware::Return;
using ::android::hardware::Void;

std::string toString(DebugInfo::Architecture arch) {
    switch (arch) {
        case DebugInfo::Architecture::UNKNOWN:
            return "UNKNOWN";
        case DebugInfo::Architecture::IS_64BIT:
            return "IS_64BIT";
        case DebugInfo::Architecture::IS_32BIT:
            return "IS_32BIT";
    }
    return ::android::hardware::details::toHexString(static_cast<int32_t>(arch));
}

std::string toString(const DebugInfo& info) {
    return "{.pid = " + std::to_string(info.pid) + ", .ptr = " + std::to_string(info.ptr) +
           ", .arch = " + toString(info.arch) + "}";
}

// The callbacks come by value because the published signatures say so.
// NOLINTBEGIN(performance-unnecessary-value-param)

bool IBase::isRemote() const {
    return false;
}

Return<void> IBase::interfaceChain(interfaceChain_cb _hidl_cb) {
    _hidl_cb({IBase::descriptor});
    return Void();
}

Return<void> IBase::debug(const hidl_handle& /*fd*/, const hidl_vec<hidl_string>& /*options*/) {
    return Void();
}

Return<void> IBase::interfaceDescriptor(interfaceDescriptor_cb _hidl_cb) {
    _hidl_cb(IBase::descriptor);
    return Void();
}

Return<void> IBase::getHashChain(getHashChain_cb _hidl_cb) {
    _hidl_cb({});
    return Void();
}

Return<void> IBase::setHALInstrumentation() {
    return Void();
}

Return<bool> IBase::linkToDeath(const sp<hidl_death_recipient>& recipient, uint64_t /*cookie*/) {
    return recipient != nullptr;
}

Return<void> IBase::ping() {
    return Void();
}

Return<void> IBase::getDebugInfo(getDebugInfo_cb _hidl_cb) {
    constexpr auto kArchitecture =
        sizeof(void*) == 8 ? DebugInfo::Architecture::IS_64BIT : DebugInfo::Architecture::IS_32BIT;
    _hidl_cb({-1, 0, kArchitecture});
    return Void();
}

// NOLINTEND(performance-unnecessary-value-param)

Return<void> IBase::notifySyspropsChanged() {
    ::android::report_sysprop_change();
    return Void();
}

Return<bool> IBase::unlinkToDeath(const sp<hidl_death_recipient>& recipient) {
    return recipient != nullptr;
}

Return<sp<IBase>> IBase::castFrom(const sp<IBase>& parent, bool /*emitError*/) {
    return parent;
}

std::string toString(const sp<IBase>& object) {
    return ::android::hardware::details::describeInterface(IBase::descriptor, object.get());
}

}  // namespace android::hidl::base::V1_0

namespace android::hardware::details {

Return<bool> canCastInterface(hidl::base::V1_0::IBase* object, const char* descriptor,
                              bool emitError) {
    bool found = false;
    const Return<void> result = object->interfaceChain([&](const auto& chain) {
        for (const hidl_string& link : chain) found = found || link == descriptor;
    });
    if (!result.isOk() && emitError) return StatusOf<void, bool>(result);
    return result.isOk() && found && !object->isRemote();
}

std::string describeInterface(const char* descriptor, const hidl::base::V1_0::IBase* object) {
    if (object == nullptr) return "(null)";
    return std::string("[class or subclass of ") + descriptor + "]@" +
           (object->isRemote() ? "remote" : "local");
}

}  // namespace android::hardware::details
