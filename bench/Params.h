// The key that most measurements are about: an EC signing key with 15 parameters of all kinds.
#pragma once

#include <android/hardware/keymaster/4.0/IKeymasterDevice.h>
#include <hardware/keymaster_defs.h>

#include <cstddef>
#include <vector>

namespace lumo::bench {

using ::android::hardware::hidl_vec;
using ::android::hardware::keymaster::V4_0::KeyParameter;

constexpr size_t kUsualParams = 15;

// The first `count` of them; more than 15 are those of a key that as many users may use. Blobs
// point into constant memory.
std::vector<keymaster_key_param_t> coreParams(size_t count = kUsualParams);
hidl_vec<KeyParameter> hidlParams(const std::vector<keymaster_key_param_t>& params);
inline hidl_vec<KeyParameter> hidlParams(size_t count = kUsualParams) {
    return hidlParams(coreParams(count));
}

}  // namespace lumo::bench
