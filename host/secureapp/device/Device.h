// One device on the workstation: its state directory, its configuration and its two secure
// applications.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "secureapp/device/ConfigFile.h"
#include "secureapp/device/FileState.h"
#include "secureapp/device/HostEnvironment.h"
#include "secureapp/protocol/SecureApp.h"

namespace lumo::secureapp {

struct DeviceOptions {
    std::string state_directory;
    const Profile* profile = nullptr;  // one of findProfile()'s
    bool test_attestation_keys = false;
};

class Device {
  public:
    // Opens the state directory and reads its configuration. Throws StateError.
    explicit Device(const DeviceOptions& options);

    const Profile& profile() const { return profile_; }
    bool drawsTheSameRandomNumbers() const { return settings_.random_seed.has_value(); }
    // Whether the state directory was made, or was still empty: a mistyped name looks the same.
    bool isNew() const { return settings_.is_new; }

    // StrongBox's secure application, or the trusted environment's for every other level; created
    // by the first call, which is its boot. Throws StateError. Safe from several threads.
    SecureApp& app(keymaster_security_level_t level);

    // A reboot: both applications lose what a boot does not keep. Safe from several threads.
    void restart();

    // Aborts what the client left open. Safe from several threads.
    void endClient(uint64_t client);

  private:
    // The application refers to the state, so the state is destroyed last.
    struct Instance {
        std::unique_ptr<FileState> state;
        std::unique_ptr<SecureApp> app;
    };

    const Profile profile_;
    const std::string directory_;
    DeviceSettings settings_;
    HostClock clock_;
    HostRandom random_;
    FileState shared_state_;
    std::mutex mutex_;
    std::map<keymaster_security_level_t, Instance> instances_;
};

}  // namespace lumo::secureapp
