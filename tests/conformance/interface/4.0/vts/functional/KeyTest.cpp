// In the shape of the platform's suites, so that scripts/conformance is tried without them: every
// case runs once for each registered instance, within an environment and a main() of the suite.
#include <android/hidl/manager/1.0/IServiceManager.h>
#include <gtest/gtest.h>
#include <hidl/GtestPrinter.h>
#include <hidl/ServiceManagement.h>

#include "DeviceTest.h"

static bool prepared = false;

struct Environment : testing::Environment {
    void SetUp() override { prepared = ntohq(htonq(1)) == 1; }
};

struct KeyTest : DeviceTest {};

TEST_P(KeyTest, Generate) {
    ASSERT_TRUE(prepared);
    EXPECT_EQ(std::get<0>(makeKey(device)), ErrorCode::OK);
}

// Over CBOR characteristics are read without the application id; over records they are not.
TEST_P(KeyTest, CharacteristicsNeedTheApplicationId) {
    ErrorCode error = ErrorCode::UNKNOWN_ERROR;
    device->getKeyCharacteristics(std::get<1>(makeKey(device)), {}, {},
                                  [&](ErrorCode code, const auto&) { error = code; });
    EXPECT_EQ(error, ErrorCode::INVALID_KEY_BLOB);
}

INSTANTIATE_TEST_SUITE_P(
    PerInstance, KeyTest,
    testing::ValuesIn(android::hardware::getAllHalInstanceNames(IKeymasterDevice::descriptor)),
    android::hardware::PrintInstanceNameToString);

int main(int argc, char** argv) {
    testing::AddGlobalTestEnvironment(new Environment);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
