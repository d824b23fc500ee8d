#include <Keymaster41Device.h>
#include <KeymasterHalDevice.h>

#include "ServiceMethods.h"

namespace {

using namespace ::lumo::test;
using ::keymaster::V4_0::Keymaster4Device;
using ::keymaster::V4_1::CreateKeymasterDevice;
using ::keymaster::V4_1::CreateSbKeymasterDevice;
using ::keymaster::V4_1::Keymaster41Device;
using ::keymasterdevice::KeymasterHalDevice;
using Interface41 = ::android::hardware::keymaster::V4_1::IKeymasterDevice;
using ErrorCode41 = ::android::hardware::keymaster::V4_1::ErrorCode;

class Keymaster41DeviceTest : public ServiceTest {};

// The object's 4.0 face by way of the 4.0 object that it contains.
IKeymasterDevice& containedDevice(Interface41& device) {
    return static_cast<Keymaster4Device&>(static_cast<Keymaster41Device&>(device));
}

TEST_F(Keymaster41DeviceTest, EveryMethod) {
    for (const bool strongbox : {false, true}) {
        const auto device = start(strongbox ? CreateSbKeymasterDevice : CreateKeymasterDevice);
        expectEveryMethod(*device, strongbox);
        expectEveryMethod(containedDevice(*device), strongbox);
    }
}

TEST_F(Keymaster41DeviceTest, NotificationsReachTheSecureApplication) {
    for (const bool strongbox : {false, true}) {
        const auto device = start(strongbox ? CreateSbKeymasterDevice : CreateKeymasterDevice);
        VerificationToken token{};
        token.challenge = 5;
        EXPECT_EQ(ErrorCode41(device->deviceLocked(true, token)), ErrorCode41::OK);
        EXPECT_EQ(transport.lastSent().command_id, strongbox ? 0x211DU : 0x211AU);
        EXPECT_EQ(transport.lastSent().request, fromHex("a1 182e f5"));
        EXPECT_EQ(ErrorCode41(device->deviceLocked(false, {})), ErrorCode41::OK);
        EXPECT_EQ(transport.lastSent().request, fromHex("a1 182e f4"));

        EXPECT_EQ(ErrorCode41(device->earlyBootEnded()), ErrorCode41::OK);
        EXPECT_EQ(transport.lastSent().command_id, strongbox ? 0x211CU : 0x2119U);
        EXPECT_EQ(transport.lastSent().request, Bytes());

        transport.replies = {{-72, {}}, {-73, {}}};
        EXPECT_EQ(ErrorCode41(device->deviceLocked(true, {})), ErrorCode41::DEVICE_LOCKED);
        EXPECT_EQ(ErrorCode41(device->earlyBootEnded()), ErrorCode41::EARLY_BOOT_ENDED);
    }
}

TEST_F(Keymaster41DeviceTest, AloneItRefusesNotifications) {
    const auto device = start<Interface41>([] {
        return static_cast<Interface41*>(new Keymaster41Device(KM_SECURITY_LEVEL_STRONGBOX));
    });
    EXPECT_EQ(ErrorCode41(device->deviceLocked(true, {})), ErrorCode41::UNIMPLEMENTED);
    EXPECT_EQ(ErrorCode41(device->earlyBootEnded()), ErrorCode41::UNIMPLEMENTED);
    EXPECT_EQ(transport.callNames(), "");
}

TEST_F(Keymaster41DeviceTest, MakesItsOwnCoreAfterTheStartUp) {
    static std::string before;
    const auto device = start<Interface41>([] {
        return static_cast<Interface41*>(new Keymaster41Device(
            KM_SECURITY_LEVEL_STRONGBOX, [](keymaster_security_level_t level) {
                EXPECT_EQ(level, KM_SECURITY_LEVEL_STRONGBOX);
                before = ScriptedTransport::instance().callNames();
                return std::make_unique<KeymasterHalDevice>(level);
            }));
    });
    EXPECT_EQ(before, "vaultlink_dev_init send_cmd isLegacy hsm_init init sendCmd");
    EXPECT_EQ(ErrorCode41(device->earlyBootEnded()), ErrorCode41::OK);
}

}  // namespace
