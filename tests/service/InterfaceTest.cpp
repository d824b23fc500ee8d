// What the interfaces give every service object besides the keymaster's own methods.

#include <Keymaster41Device.h>

#include "ServiceTest.h"

namespace {

using namespace ::lumo::test;
using ::android::hidl::base::V1_0::IBase;
using Interface41 = ::android::hardware::keymaster::V4_1::IKeymasterDevice;

class InterfaceTest : public ServiceTest {};

TEST_F(InterfaceTest, CastsOnlyToWhatTheObjectIs) {
    const sp<IBase> old = start(::keymaster::V4_0::CreateKeymasterDevice);
    const sp<IBase> young = start(::keymaster::V4_1::CreateKeymasterDevice);
    const sp<IKeymasterDevice> young40 = IKeymasterDevice::castFrom(young);
    ASSERT_NE(young40, nullptr);
    EXPECT_EQ(sp<Interface41>(Interface41::castFrom(young40)), young);
    EXPECT_EQ(sp<IKeymasterDevice>(IKeymasterDevice::castFrom(old)), old);
    EXPECT_EQ(sp<Interface41>(Interface41::castFrom(old)), nullptr);
    EXPECT_EQ(sp<IKeymasterDevice>(IKeymasterDevice::castFrom(sp<IBase>())), nullptr);
}

}  // namespace
