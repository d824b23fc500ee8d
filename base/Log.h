// Lines in the Android log. Their texts and tags are looked for by engineers and scripts and never
// change. A line carries no key material.
#pragma once

#include <android/log.h>

namespace keymasterdevice {

// Tags: of the device core and the key-blob reader, of the conversions, of the service objects.
inline constexpr char kDeviceLogTag[] = "KeyMasterHalDevice";
inline constexpr char kCryptoLogTag[] = "KeyMasterCryptoDevice";
inline constexpr char kServiceLogTag[] = "android.hardware.keymaster@4.0-impl";

}  // namespace keymasterdevice

// Macros, so that the compiler checks every format against its arguments.
#define KM_LOG_ERROR(tag, ...) __android_log_print(ANDROID_LOG_ERROR, tag, __VA_ARGS__)
#define KM_LOG_INFO(tag, ...) __android_log_print(ANDROID_LOG_INFO, tag, __VA_ARGS__)
