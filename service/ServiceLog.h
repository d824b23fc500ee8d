// The service objects' tag in the Android log.
#pragma once

namespace keymaster::V4_0 {

constexpr char kServiceLogTag[] = "android.hardware.keymaster@4.0-impl";

}  // namespace keymaster::V4_0
