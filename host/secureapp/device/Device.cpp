#include "secureapp/device/Device.h"

namespace lumo::secureapp {
namespace {

// Folders of the state directory.
constexpr char kEnvironmentFolder[] = "default";
constexpr char kStrongBoxFolder[] = "strongbox";
constexpr char kSharedFolder[] = "shared";

DeviceSettings readSettings(const DeviceOptions& options) {
    prepareStateDirectory(options.state_directory);
    DeviceSettings settings = loadDeviceConfig(options.state_directory);
    if (options.test_attestation_keys) settings.config.test_attestation_keys = true;
    return settings;
}

}  // namespace

Device::Device(const DeviceOptions& options)
    : profile_(*options.profile),
      directory_(options.state_directory),
      settings_(readSettings(options)),
      clock_(settings_.fixed_time),
      random_(settings_.random_seed),
      shared_state_(directory_, kSharedFolder) {}

SecureApp& Device::app(keymaster_security_level_t level) {
    const bool strongbox = level == KM_SECURITY_LEVEL_STRONGBOX;
    const keymaster_security_level_t played =
        strongbox ? KM_SECURITY_LEVEL_STRONGBOX : KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT;

    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = instances_.find(played);
    if (found != instances_.end()) return *found->second.app;

    Instance instance;
    instance.state =
        std::make_unique<FileState>(directory_, strongbox ? kStrongBoxFolder : kEnvironmentFolder);
    instance.app = std::make_unique<SecureApp>(profile_, played, settings_.config, *instance.state,
                                               shared_state_, clock_, random_);
    return *instances_.emplace(played, std::move(instance)).first->second.app;
}

void Device::restart() {
    const std::lock_guard<std::mutex> lock(mutex_);
    for (auto& [level, instance] : instances_) instance.app->restart();
}

void Device::endClient(uint64_t client) {
    const std::lock_guard<std::mutex> lock(mutex_);
    for (auto& [level, instance] : instances_) instance.app->endClient(client);
}

}  // namespace lumo::secureapp
