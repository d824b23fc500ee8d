#include <android/hardware/keymaster/4.1/IKeymasterDevice.h>
#include <gtest/gtest.h>
#include <hidl/GtestPrinter.h>
#include <hidl/ServiceManagement.h>

#include "DeviceTest.h"

using Device41 = android::hardware::keymaster::V4_1::IKeymasterDevice;
struct BootTest : DeviceTest {};

TEST_P(BootTest, EarlyBootEndsTwice) {
    std::pair<ErrorCode, Blob> key;
    key = makeKey(device);  // the platform's standard library takes a tuple for a pair
    EXPECT_EQ(key.first, ErrorCode::OK);
    EXPECT_EQ(Device41::getService(GetParam())->earlyBootEnded(),
              android::hardware::keymaster::V4_1::ErrorCode::OK);
}

INSTANTIATE_TEST_SUITE_P(
    PerInstance, BootTest,
    testing::ValuesIn(android::hardware::getAllHalInstanceNames(Device41::descriptor)),
    android::hardware::PrintInstanceNameToString);
