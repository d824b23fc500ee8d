// Runs a suite over one object of each level, registered as a device's service process does it,
// after early boot.
#include <Keymaster41Device.h>
#include <gtest/gtest.h>
#include <lumo/Transport.h>

#include <iostream>

// A suite's own main(), if it has one.
__attribute__((weak)) int conformanceSuiteMain(int argc, char** argv);

namespace {

using android::sp;
using android::hardware::keymaster::V4_1::ErrorCode;
using android::hardware::keymaster::V4_1::IKeymasterDevice;

// False if there is no such service; says why.
bool publish(keymaster_security_level_t level, IKeymasterDevice* (*create)(), const char* name) {
    const lumo::TransportStatus status = lumo::checkTransport(level);
    if (status.kind != lumo::TransportStatus::ok) {
        std::cerr << "conformance: " << name << ": " << status.message << '\n';
        return false;
    }
    const sp<IKeymasterDevice> device = create();
    const bool registered = device->registerAsService(name) == android::OK;
    if (!registered || device->earlyBootEnded() != ErrorCode::OK) {
        std::cerr << "conformance: " << name << " was not registered or early boot did not end\n";
        return false;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    // Before the suites are instantiated: they ask for the instances then.
    const bool published = publish(KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT,
                                   keymaster::V4_1::CreateKeymasterDevice, "default") &&
                           publish(static_cast<keymaster_security_level_t>(2),
                                   keymaster::V4_1::CreateSbKeymasterDevice, "strongbox");
    if (!published) return 4;
    if (conformanceSuiteMain != nullptr) return conformanceSuiteMain(argc, argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
