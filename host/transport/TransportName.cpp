#include "TransportName.h"

#include <algorithm>
#include <charconv>
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

// The settings of one transport, each at most once but for fault.
struct Setting {
    std::string key;
    std::string value;
    std::string text;  // both, as written
};

std::vector<Setting> splitSettings(const std::string& settings, const std::string& text) {
    std::vector<Setting> found;
    for (size_t at = 0; at <= settings.size();) {
        const size_t comma = std::min(settings.find(',', at), settings.size());
        const std::string setting = settings.substr(at, comma - at);
        const size_t equals = setting.find('=');
        const std::string key = setting.substr(0, equals);
        const bool given = std::any_of(found.begin(), found.end(), [&](const Setting& other) {
            return other.key == key && key != "fault";
        });
        if (given) refuse(text, "'" + key + "' is given twice");
        found.push_back(
            {key, equals == std::string::npos ? "" : setting.substr(equals + 1), setting});
        at = comma + 1;
    }
    return found;
}

// Whether the setting is one of the faults', which go with every transport.
bool setFaults(TransportName& name, const Setting& setting, const std::string& text) {
    if (setting.key == "fault") {
        try {
            name.faults.push_back(parseFaultRule(setting.value));
        } catch (const std::invalid_argument& error) {
            refuse(text, "'" + setting.text + "': " + error.what());
        }
        return true;
    }
    if (setting.key != "seed") return false;
    const char* end = setting.value.data() + setting.value.size();
    const auto [stop, error] = std::from_chars(setting.value.data(), end, name.seed);
    if (error != std::errc() || stop != end) {
        refuse(text, "seed takes a whole number, not '" + setting.value + "'");
    }
    return true;
}

void setSim(TransportName& name, const Setting& setting, const std::string& text) {
    if (setting.key != "profile") {
        refuse(text, "sim takes profile=NAME, fault=... and seed=N, not '" + setting.text + "'");
    }
    name.profile = secureapp::findProfile(setting.value);
    if (name.profile == nullptr) {
        refuse(text, "unknown profile '" + setting.value + "'; known are " + knownProfiles());
    }
}

void setUnix(TransportName& name, const Setting& setting, const std::string& text) {
    if (setting.text != "replay=no" && setting.text != "replay=yes") {
        refuse(text,
               "unix takes a path without commas, replay=yes or replay=no, fault=... and seed=N, "
               "not '" +
                   setting.text + "'");
    }
    name.replay = setting.value == "yes";
}

}  // namespace

TransportName parseTransportName(const std::string& text) {
    const size_t colon = text.find(':');
    const std::string kind = text.substr(0, colon);
    std::string settings = colon == std::string::npos ? "" : text.substr(colon + 1);
    bool has_settings = colon != std::string::npos;
    TransportName name;
    const bool is_unix = kind == "unix";
    if (kind == "sim") {
        name.profile = secureapp::findProfile(kDefaultProfile);
    } else if (is_unix) {
        name.kind = TransportName::Kind::kUnix;
        const size_t comma = settings.find(',');
        name.path = settings.substr(0, comma);
        if (name.path.empty()) {
            refuse(text, "unix needs the path of the daemon's socket: unix:PATH");
        }
        has_settings = comma != std::string::npos;
        settings = has_settings ? settings.substr(comma + 1) : "";
    } else {
        refuse(text,
               "unknown transport '" + kind + "'; known are sim, sim:profile=NAME and unix:PATH");
    }
    if (!has_settings) return name;
    for (const Setting& setting : splitSettings(settings, text)) {
        if (setFaults(name, setting, text)) continue;
        is_unix ? setUnix(name, setting, text) : setSim(name, setting, text);
    }
    return name;
}

TransportName chosenTransport() {
    const char* value = std::getenv(kVariable);
    return parseTransportName(value == nullptr || *value == 0 ? kDefaultName : value);
}

}  // namespace lumo::transport
