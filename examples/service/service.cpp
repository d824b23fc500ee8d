// The keymaster service process: publishes both levels of keymaster 4.1 and serves them.
//
// The library takes no lock, so that one thread at a time may call it. A pool of one binder thread,
// which is this one, keeps the calls of both objects apart.
#include <Keymaster41Device.h>
#include <android/log.h>
#include <hidl/HidlTransportSupport.h>

namespace {

using android::sp;
using android::hardware::keymaster::V4_1::IKeymasterDevice;

constexpr char kLogTag[] = "android.hardware.keymaster@4.1-service.lumo";

// The start-up of an object waits for the version properties and ends the process where the secure
// application cannot be configured; init starts it again.
bool publish(IKeymasterDevice* (*create)(), const char* name) {
    const sp<IKeymasterDevice> keymaster = create();
    const bool published = keymaster->registerAsService(name) == android::OK;
    if (!published) {
        __android_log_print(ANDROID_LOG_ERROR, kLogTag,
                            "cannot register keymaster 4.1 as \"%s\": is it in the VINTF manifest, "
                            "and does the policy let hal_keymaster_lumo add it?",
                            name);
    }
    return published;
}

}  // namespace

int main() {
    android::hardware::configureRpcThreadpool(1, true /* this thread joins */);
    // A device without a dedicated secure processor leaves the second out, here and in the
    // manifest.
    if (!publish(keymaster::V4_1::CreateKeymasterDevice, "default") ||
        !publish(keymaster::V4_1::CreateSbKeymasterDevice, "strongbox")) {
        return 1;
    }
    android::hardware::joinRpcThreadpool();
    return 1;  // joining ends only when the process is no longer of use
}
