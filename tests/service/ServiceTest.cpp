#include "ServiceTest.h"

#include <android-base/properties.h>
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

}  // namespace lumo::test
