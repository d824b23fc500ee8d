#include "ServiceTest.h"

#include <android-base/properties.h>
#include <stdio.h>
#include <stdlib.h>

namespace lumo::test {

ServiceTest::ServiceTest() {
    // No file: a test that unsets a property must not find it there.
    setenv("LUMO_PROPERTIES", "/dev/null", 1);
    setProperty("ro.build.version.release", "11");
    setProperty("ro.build.version.security_patch", "2020-12-05");
    setProperty("ro.vendor.build.security_patch", "2020-12-01");
    transport.reset();
}

void setProperty(const std::string& name, const std::string& value) {
    ASSERT_TRUE(android::base::SetProperty(name, value));
}

namespace {

KeyParameter paramOf(Tag tag) {
    KeyParameter param{};
    param.tag = tag;
    return param;
}

}  // namespace

KeyParameter integerParam(Tag tag, uint32_t value) {
    KeyParameter param = paramOf(tag);
    param.f.integer = value;
    return param;
}

KeyParameter longParam(Tag tag, uint64_t value) {
    KeyParameter param = paramOf(tag);
    param.f.longInteger = value;
    return param;
}

KeyParameter booleanParam(Tag tag, bool value) {
    KeyParameter param = paramOf(tag);
    param.f.boolValue = value;
    return param;
}

KeyParameter bytesParam(Tag tag, const hidl_vec<uint8_t>& value) {
    KeyParameter param = paramOf(tag);
    param.blob = value;
    return param;
}

Bytes toBytes(const hidl_vec<uint8_t>& bytes) {
    return {bytes.data(), bytes.data() + bytes.size()};
}

namespace {

template <typename List, typename ToText>
std::string join(const char* brackets, const List& list, ToText to_text) {
    std::string text(1, brackets[0]);
    for (const auto& element : list) text += (text.size() > 1 ? "," : "") + to_text(element);
    return text + brackets[1];
}

}  // namespace

std::string Answer::toText(const hidl_vec<uint8_t>& bytes) {
    return toHex(toBytes(bytes));
}

std::string Answer::toText(const hidl_vec<hidl_vec<uint8_t>>& list) {
    return join("[]", list, [](const auto& bytes) { return toText(bytes); });
}

std::string Answer::toText(const hidl_vec<KeyParameter>& params) {
    return join("{}", params, [](const KeyParameter& param) {
        char tag[16];
        snprintf(tag, sizeof(tag), "%08x:", static_cast<uint32_t>(param.tag));
        return tag + (param.blob.size() ? toText(param.blob) : toText(param.f.longInteger));
    });
}

std::string Answer::toText(const KeyCharacteristics& sets) {
    return "hw" + toText(sets.hardwareEnforced) + "sw" + toText(sets.softwareEnforced);
}

std::string Answer::toText(const HmacSharingParameters& params) {
    return toText(params.seed) + " " + toHex({params.nonce.data(), params.nonce.data() + 32});
}

std::string Answer::toText(const VerificationToken& token) {
    return toText(token.challenge) + " " + toText(token.timestamp) + " " +
           toText(static_cast<uint32_t>(token.securityLevel)) + " " + toText(token.mac) +
           toText(token.parametersVerified);
}

}  // namespace lumo::test
