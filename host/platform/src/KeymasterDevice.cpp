#include <android/hardware/keymaster/4.0/IKeymasterDevice.h>
#include <android/hardware/keymaster/4.1/IKeymasterDevice.h>
#include <lumo/ServiceRegistry.h>

namespace android::hardware::keymaster {

using ::android::hardware::details::castInterface;
using ::android::hardware::details::describeInterface;
using ::android::hidl::base::V1_0::IBase;

namespace V4_0 {

Return<void> IKeymasterDevice::interfaceChain(interfaceChain_cb _hidl_cb) {
    _hidl_cb({IKeymasterDevice::descriptor, IBase::descriptor});
    return Void();
}

Return<void> IKeymasterDevice::interfaceDescriptor(interfaceDescriptor_cb _hidl_cb) {
    _hidl_cb(IKeymasterDevice::descriptor);
    return Void();
}

Return<sp<IKeymasterDevice>> IKeymasterDevice::castFrom(const sp<IKeymasterDevice>& parent,
                                                        bool /*emitError*/) {
    return parent;
}

Return<sp<IKeymasterDevice>> IKeymasterDevice::castFrom(const sp<IBase>& parent, bool emitError) {
    return castInterface<IKeymasterDevice>(parent, emitError);
}

sp<IKeymasterDevice> IKeymasterDevice::getService(const std::string& serviceName,
                                                  bool /*getStub*/) {
    return castFrom(lumo::registeredService(descriptor, serviceName));
}

sp<IKeymasterDevice> IKeymasterDevice::tryGetService(const std::string& serviceName, bool getStub) {
    return getService(serviceName, getStub);
}

status_t IKeymasterDevice::registerAsService(const std::string& serviceName) {
    return lumo::registerService(this, serviceName);
}

std::string toString(const sp<IKeymasterDevice>& object) {
    return describeInterface(IKeymasterDevice::descriptor, object.get());
}

}  // namespace V4_0

namespace V4_1 {

Return<void> IKeymasterDevice::interfaceChain(interfaceChain_cb _hidl_cb) {
    _hidl_cb({IKeymasterDevice::descriptor, V4_0::IKeymasterDevice::descriptor, IBase::descriptor});
    return Void();
}

Return<void> IKeymasterDevice::interfaceDescriptor(interfaceDescriptor_cb _hidl_cb) {
    _hidl_cb(IKeymasterDevice::descriptor);
    return Void();
}

Return<sp<IKeymasterDevice>> IKeymasterDevice::castFrom(const sp<IKeymasterDevice>& parent,
                                                        bool /*emitError*/) {
    return parent;
}

Return<sp<IKeymasterDevice>> IKeymasterDevice::castFrom(const sp<V4_0::IKeymasterDevice>& parent,
                                                        bool emitError) {
    return castInterface<IKeymasterDevice>(parent, emitError);
}

Return<sp<IKeymasterDevice>> IKeymasterDevice::castFrom(const sp<IBase>& parent, bool emitError) {
    return castInterface<IKeymasterDevice>(parent, emitError);
}

sp<IKeymasterDevice> IKeymasterDevice::getService(const std::string& serviceName,
                                                  bool /*getStub*/) {
    return castFrom(lumo::registeredService(descriptor, serviceName));
}

sp<IKeymasterDevice> IKeymasterDevice::tryGetService(const std::string& serviceName, bool getStub) {
    return getService(serviceName, getStub);
}

status_t IKeymasterDevice::registerAsService(const std::string& serviceName) {
    return lumo::registerService(this, serviceName);
}

std::string toString(const sp<IKeymasterDevice>& object) {
    return describeInterface(IKeymasterDevice::descriptor, object.get());
}

}  // namespace V4_1
}  // namespace android::hardware::keymaster
