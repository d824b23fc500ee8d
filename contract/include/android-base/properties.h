// The wait for a system property, which Debian's header declares for devices only.
#pragma once

#include <chrono>
#include <string>

namespace android::base {

bool WaitForPropertyCreation(const std::string& key, std::chrono::milliseconds relative_timeout =
                                                         std::chrono::milliseconds::max());

}  // namespace android::base
