#include <android/hardware/keymaster/4.0/types.h>
#include <string.h>

namespace android::hardware::keymaster::V4_0 {

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

}  // namespace android::hardware::keymaster::V4_0
