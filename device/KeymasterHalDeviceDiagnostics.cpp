#include "KeymasterHalDevice.h"
#include "TagNames.h"

namespace keymasterdevice {

const char* KeymasterHalDevice::TagToString(keymaster_tag_t tag) {
    return tagName(static_cast<uint32_t>(tag));
}

// Kept: this build prints nothing.
void KeymasterHalDevice::PrintParams(keymaster_key_param_t* /*params*/, unsigned int /*count*/) {}

}  // namespace keymasterdevice
