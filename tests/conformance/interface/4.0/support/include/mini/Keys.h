#pragma once
#include <android/hardware/keymaster/4.0/IKeymasterDevice.h>

using namespace android::hardware::keymaster::V4_0;
using Blob = android::hardware::hidl_vec<uint8_t>;

// A new EC key, bound to an application id.
std::tuple<ErrorCode, Blob> makeKey(const android::sp<IKeymasterDevice>& device);
