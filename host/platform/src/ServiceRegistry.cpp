#include <hidl/ServiceManagement.h>
#include <lumo/ServiceRegistry.h>

#include <map>
#include <utility>

namespace {

using android::sp;
using android::hidl::base::V1_0::IBase;

// By descriptor and name.
std::map<std::pair<std::string, std::string>, sp<IBase>>& registry() {
    static std::map<std::pair<std::string, std::string>, sp<IBase>> services;
    return services;
}

}  // namespace

namespace lumo {

android::status_t registerService(const sp<IBase>& object, const std::string& name) {
    if (object == nullptr) return android::BAD_VALUE;
    const auto called = object->interfaceChain([&](const auto& chain) {
        for (const auto& descriptor : chain) registry()[{descriptor, name}] = object;
    });
    return called.isOk() ? android::OK : android::UNKNOWN_ERROR;
}

sp<IBase> registeredService(const std::string& descriptor, const std::string& name) {
    const auto found = registry().find({descriptor, name});
    return found == registry().end() ? nullptr : found->second;
}

}  // namespace lumo

namespace android::hardware {

std::vector<std::string> getAllHalInstanceNames(const std::string& descriptor) {
    std::vector<std::string> names;
    for (const auto& [key, object] : registry()) {
        if (key.first == descriptor) names.push_back(key.second);
    }
    return names;
}

}  // namespace android::hardware
