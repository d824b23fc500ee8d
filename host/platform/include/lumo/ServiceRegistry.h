#pragma once

// The objects that this process registered as services, by interface and name. What getService and
// registerAsService of the interfaces rest on. It has no lock: register before starting threads.

#include <android/hidl/base/1.0/IBase.h>

#include <string>

namespace lumo {

// Keeps `object` under `name` for every interface that it implements, in place of another.
android::status_t registerService(const android::sp<android::hidl::base::V1_0::IBase>& object,
                                  const std::string& name);

// The object registered under `name` for that interface; null if there is none.
android::sp<android::hidl::base::V1_0::IBase> registeredService(const std::string& descriptor,
                                                                const std::string& name);

}  // namespace lumo
