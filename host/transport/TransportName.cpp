#include "TransportName.h"

#include <cstdlib>

namespace lumo::transport {
namespace {

constexpr char kVariable[] = "LUMO_TRANSPORT";
constexpr char kDefaultName[] = "sim";
constexpr char kDefaultProfile[] = "cbor";

[[noreturn]] void refuse(const std::string& text, const std::string& why) {
    throw UsageError(std::string(kVariable) + "='" + text + "': " + why);
}

std::string knownProfiles() {
    std::string names;
    for (const std::string& name : secureapp::profileNames()) {
        names += (names.empty() ? "" : ", ") + name;
    }
    return names;
}

void setSimProfile(TransportName& name, const std::string& setting, const std::string& text) {
    const size_t equals = setting.find('=');
    if (equals == std::string::npos || setting.substr(0, equals) != "profile") {
        refuse(text, "sim takes profile=NAME, not '" + setting + "'");
    }
    const std::string profile = setting.substr(equals + 1);
    name.profile = secureapp::findProfile(profile);
    if (name.profile == nullptr) {
        refuse(text, "unknown profile '" + profile + "'; known are " + knownProfiles());
    }
}

void setReplay(TransportName& name, const std::string& setting, const std::string& text) {
    if (setting != "replay=no" && setting != "replay=yes") {
        refuse(text, "unix takes a path without commas and replay=yes or replay=no, not '" +
                         setting + "'");
    }
    name.replay = setting == "replay=yes";
}

}  // namespace

TransportName parseTransportName(const std::string& text) {
    const size_t colon = text.find(':');
    const std::string kind = text.substr(0, colon);
    const bool has_settings = colon != std::string::npos;
    const std::string settings = has_settings ? text.substr(colon + 1) : "";
    TransportName name;
    if (kind == "sim") {
        name.profile = secureapp::findProfile(kDefaultProfile);
        if (has_settings) setSimProfile(name, settings, text);
        return name;
    }
    if (kind == "unix") {
        name.kind = TransportName::Kind::kUnix;
        const size_t comma = settings.find(',');
        name.path = settings.substr(0, comma);
        if (name.path.empty()) {
            refuse(text, "unix needs the path of the daemon's socket: unix:PATH");
        }
        if (comma != std::string::npos) setReplay(name, settings.substr(comma + 1), text);
        return name;
    }
    refuse(text, "unknown transport '" + kind + "'; known are sim, sim:profile=NAME and unix:PATH");
}

TransportName chosenTransport() {
    const char* value = std::getenv(kVariable);
    return parseTransportName(value == nullptr || *value == 0 ? kDefaultName : value);
}

}  // namespace lumo::transport
