#pragma once

// Debian's libbase has the rest of this header, but declares the waiting functions for devices
// only.

#include_next <android-base/properties.h>

#include <chrono>
#include <string>

namespace android::base {

// True if the property exists, with any value. Nobody sets properties while a workstation's process
// waits, so this does not wait: once the property file has been loaded, false comes at once, with
// one line on standard error that names the property and the file.
bool WaitForPropertyCreation(const std::string& key, std::chrono::milliseconds relative_timeout =
                                                         std::chrono::milliseconds::max());

}  // namespace android::base
