#pragma once
#include <gtest/gtest.h>
#include <mini/Keys.h>

// The fixture of both suites.
struct DeviceTest : testing::TestWithParam<std::string> {
    void SetUp() override;
    android::sp<IKeymasterDevice> device;
};
