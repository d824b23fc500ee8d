// What the interfaces give every service object besides the keymaster's own methods.

#include <Keymaster41Device.h>

#include "ServiceTest.h"

namespace {

using namespace ::lumo::test;
using ::android::hidl::base::V1_0::DebugInfo;
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

TEST_F(InterfaceTest, AnswersTheBaseCalls) {
    const sp<IKeymasterDevice> device = start(::keymaster::V4_1::CreateKeymasterDevice);
    std::vector<std::string> chain;
    std::string descriptor;
    DebugInfo info{};
    EXPECT_TRUE(device->interfaceChain([&](const auto& c) {
                          chain = {c.begin(), c.end()};
                      })
                    .isOk());
    EXPECT_TRUE(device->interfaceDescriptor([&](const auto& d) { descriptor = d; }).isOk());
    EXPECT_TRUE(device->getDebugInfo([&](const auto& i) { info = i; }).isOk());
    EXPECT_THAT(chain, testing::ElementsAre("android.hardware.keymaster@4.1::IKeymasterDevice",
                                            "android.hardware.keymaster@4.0::IKeymasterDevice",
                                            "android.hidl.base@1.0::IBase"));
    EXPECT_EQ(descriptor, chain[0]);
    EXPECT_EQ(info.pid, -1);
    EXPECT_FALSE(device->linkToDeath(nullptr, 0));
    EXPECT_EQ(toString(device), "[class or subclass of " + chain[1] + "]@local");
}

}  // namespace
