// The facts of the device in one commented file, world.conf in the state directory: what boot
// loader and factory would report. Change it and restart to rehearse an update, an unlock or a
// rollback.
#pragma once

#include <string>

#include "secureapp/base/DeviceConfig.h"
#include "secureapp/base/Environment.h"

namespace lumo::secureapp {

struct DeviceSettings {
    DeviceConfig config;
    // For tests: clocks that stand still, and random bytes that repeat.
    std::optional<uint64_t> fixed_time;  // milliseconds since 1970-01-01 UTC
    std::optional<Bytes> random_seed;
    bool is_new = false;  // the file was missing: nobody has used the state directory before
};

constexpr char kConfigFileName[] = "world.conf";

// Lines of `key = value`; empty ones and those that begin with # are ignored, an empty value means
// that the fact is absent. Throws StateError naming `file` and the line for anything else.
DeviceSettings parseDeviceConfig(const std::string& text, const std::string& file);

// The file's first content: every key with its meaning and default.
std::string defaultConfigText();

// Reads the file in `directory`; writes it with the defaults first where there is none.
DeviceSettings loadDeviceConfig(const std::string& directory);

}  // namespace lumo::secureapp
