#include <android/hardware/keymaster/4.0/IKeymasterDevice.h>
#include <android/hardware/keymaster/4.1/IKeymasterDevice.h>
#include <lumo/ServiceRegistry.h>
#include <string.h>

namespace android::hardware::keymaster {

using ::android::hardware::details::castInterface;
using ::android::hardware::details::describeInterface;
using ::android::hidl::base::V1_0::IBase;

namespace V4_0 {

LUMO_KM40_ENUMS(LUMO_HIDL_ENUM_TO_STRING)

namespace {

std::string numberToString(uint64_t value) {
    return std::to_string(value);
}

}  // namespace

// Reads the bytes of the union, not its members: whichever was written, the others may hold bits
// that are not a value of their type.
std::string toString(const KeyParameter::IntegerParams& value) {
    uint64_t wide;
    uint32_t word;
    uint8_t byte;
    memcpy(&wide, &value, sizeof(wide));
    memcpy(&word, &value, sizeof(word));
    memcpy(&byte, &value, sizeof(byte));
    return "{.algorithm = " + toString(Algorithm{word}) +
           ", .blockMode = " + toString(BlockMode{word}) +
           ", .paddingMode = " + toString(PaddingMode{word}) +
           ", .digest = " + toString(Digest{word}) + ", .ecCurve = " + toString(EcCurve{word}) +
           ", .origin = " + toString(KeyOrigin{word}) +
           ", .keyBlobUsageRequirements = " + toString(KeyBlobUsageRequirements{word}) +
           ", .purpose = " + toString(KeyPurpose{word}) +
           ", .keyDerivationFunction = " + toString(KeyDerivationFunction{word}) +
           ", .hardwareAuthenticatorType = " + toString(HardwareAuthenticatorType{word}) +
           ", .hardwareType = " + toString(SecurityLevel{word}) +
           ", .boolValue = " + numberToString(byte != 0 ? 1 : 0) +
           ", .integer = " + numberToString(word) + ", .longInteger = " + numberToString(wide) +
           ", .dateTime = " + numberToString(wide) + "}";
}

std::string toString(const KeyParameter& value) {
    return "{.tag = " + toString(value.tag) + ", .f = " + toString(value.f) +
           ", .blob = " + hardware::toString(value.blob) + "}";
}

std::string toString(const KeyCharacteristics& value) {
    return "{.softwareEnforced = " + hardware::toString(value.softwareEnforced) +
           ", .hardwareEnforced = " + hardware::toString(value.hardwareEnforced) + "}";
}

std::string toString(const HardwareAuthToken& value) {
    return "{.challenge = " + numberToString(value.challenge) +
           ", .userId = " + numberToString(value.userId) +
           ", .authenticatorId = " + numberToString(value.authenticatorId) +
           ", .authenticatorType = " + toString(value.authenticatorType) +
           ", .timestamp = " + numberToString(value.timestamp) +
           ", .mac = " + hardware::toString(value.mac) + "}";
}

std::string toString(const HmacSharingParameters& value) {
    return "{.seed = " + hardware::toString(value.seed) +
           ", .nonce = " + hardware::toString(value.nonce) + "}";
}

std::string toString(const VerificationToken& value) {
    return "{.challenge = " + numberToString(value.challenge) +
           ", .timestamp = " + numberToString(value.timestamp) +
           ", .parametersVerified = " + hardware::toString(value.parametersVerified) +
           ", .securityLevel = " + toString(value.securityLevel) +
           ", .mac = " + hardware::toString(value.mac) + "}";
}

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

LUMO_KM41_ENUMS(LUMO_HIDL_ENUM_TO_STRING)

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
