#include <android/hardware/keymaster/4.1/IKeymasterDevice.h>
#include <gtest/gtest.h>
#include <hidl/GtestPrinter.h>
#include <hidl/ServiceManagement.h>
#include <mini/Keys.h>

using Device41 = android::hardware::keymaster::V4_1::IKeymasterDevice;
struct BootTest : testing::TestWithParam<std::string> {};

TEST_P(BootTest, EarlyBootEndsTwice) {
    const android::sp<Device41> device = Device41::getService(GetParam());
    std::pair<ErrorCode, Blob> key;
    key = makeKey(device);  // the platform's standard library takes a tuple for a pair
    EXPECT_EQ(key.first, ErrorCode::OK);
    EXPECT_EQ(device->earlyBootEnded(), android::hardware::keymaster::V4_1::ErrorCode::OK);
}

INSTANTIATE_TEST_SUITE_P(
    PerInstance, BootTest,
    testing::ValuesIn(android::hardware::getAllHalInstanceNames(Device41::descriptor)),
    android::hardware::PrintInstanceNameToString);
