#include "secureapp/device/ConfigFile.h"

#include <algorithm>
#include <set>
#include <sstream>

#include "secureapp/device/FileState.h"

namespace lumo::secureapp {
namespace {

constexpr size_t kHashBytes = 32;
constexpr size_t kMaxTextBytes = 64;

// A value that cannot be read; the text says what is expected instead.
class BadValue : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

std::string trimmed(const std::string& text) {
    const char blanks[] = " \t\r";
    const size_t first = text.find_first_not_of(blanks);
    if (first == std::string::npos) return "";
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

uint64_t number(const std::string& text) {
    const bool digits =
        !text.empty() && text.size() <= 15 &&
        std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
    if (!digits) throw BadValue("a number of at most 15 digits");
    return std::stoull(text);
}

bool yesOrNo(const std::string& text) {
    if (text == "yes") return true;
    if (text == "no") return false;
    throw BadValue("yes or no");
}

std::optional<uint32_t> patchDate(const std::string& text) {
    if (text.empty()) return std::nullopt;
    const uint64_t date = text.size() == 8 ? number(text) : 0;
    const uint64_t month = date / 100 % 100;
    const uint64_t day = date % 100;
    if (month < 1 || month > 12 || day < 1 || day > 31) {
        throw BadValue("a date as YYYYMMDD, or nothing");
    }
    return static_cast<uint32_t>(date);
}

Bytes hexBytes(const std::string& text) {
    if (text.size() % 2 != 0) throw BadValue("an even number of hexadecimal digits");
    const auto digit = [](char c) -> uint8_t {
        if (c >= '0' && c <= '9') return static_cast<uint8_t>(c - '0');
        if (c >= 'a' && c <= 'f') return static_cast<uint8_t>(c - 'a' + 10);
        if (c >= 'A' && c <= 'F') return static_cast<uint8_t>(c - 'A' + 10);
        throw BadValue("hexadecimal digits");
    };
    Bytes bytes;
    for (size_t i = 0; i < text.size(); i += 2) {
        bytes.push_back(static_cast<uint8_t>(digit(text[i]) << 4 | digit(text[i + 1])));
    }
    return bytes;
}

Bytes hash(const std::string& text) {
    Bytes bytes = hexBytes(text);
    if (bytes.size() != kHashBytes) throw BadValue("64 hexadecimal digits");
    return bytes;
}

constexpr const char* kBootStates[] = {"verified", "self-signed", "unverified", "failed"};

uint32_t bootState(const std::string& text) {
    const auto found = std::find(std::begin(kBootStates), std::end(kBootStates), text);
    if (found == std::end(kBootStates)) {
        throw BadValue("verified, self-signed, unverified or failed");
    }
    return static_cast<uint32_t>(found - std::begin(kBootStates));
}

template <keymaster_tag_t tag>
void deviceId(DeviceSettings& settings, const std::string& text) {
    if (text.size() > kMaxTextBytes) throw BadValue("at most 64 bytes");
    settings.config.device_ids.erase(tag);
    if (!text.empty()) settings.config.device_ids[tag] = Bytes(text.begin(), text.end());
}

struct Key {
    const char* name;
    const char* first_value;
    const char* comment;
    void (*set)(DeviceSettings&, const std::string&);
};

const Key kKeys[] = {
    {"vendor_patchlevel", "",
     "Patch levels as YYYYMMDD; nothing: none. The vendor's comes from the service at start "
     "unless\n"
     "it is set here. Raise them to rehearse an update, lower them to rehearse a rollback.",
     [](DeviceSettings& s, const std::string& v) { s.config.vendor_patchlevel = patchDate(v); }},
    {"boot_patchlevel", "20201205", "",
     [](DeviceSettings& s, const std::string& v) { s.config.boot_patchlevel = patchDate(v); }},
    {"verified_boot_key", "0000000000000000000000000000000000000000000000000000000000000000",
     "What the boot loader found: the key that verified the system, whether the device is locked,\n"
     "the outcome (verified, self-signed, unverified, failed) and the hash of what was verified.\n"
     "Keys made under one boot key and lock cannot be used under another.",
     [](DeviceSettings& s, const std::string& v) { s.config.verified_boot_key = hash(v); }},
    {"device_locked", "no", "",
     [](DeviceSettings& s, const std::string& v) { s.config.device_locked = yesOrNo(v); }},
    {"verified_boot_state", "unverified", "",
     [](DeviceSettings& s, const std::string& v) { s.config.verified_boot_state = bootState(v); }},
    {"verified_boot_hash", "5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a", "",
     [](DeviceSettings& s, const std::string& v) { s.config.verified_boot_hash = hash(v); }},
    {"brand", "", "The device's ids that attestation can confirm; nothing: not provisioned.",
     deviceId<KM_TAG_ATTESTATION_ID_BRAND>},
    {"device", "", "", deviceId<KM_TAG_ATTESTATION_ID_DEVICE>},
    {"product", "", "", deviceId<KM_TAG_ATTESTATION_ID_PRODUCT>},
    {"serial", "", "", deviceId<KM_TAG_ATTESTATION_ID_SERIAL>},
    {"imei", "", "", deviceId<KM_TAG_ATTESTATION_ID_IMEI>},
    {"meid", "", "", deviceId<KM_TAG_ATTESTATION_ID_MEID>},
    {"manufacturer", "", "", deviceId<KM_TAG_ATTESTATION_ID_MANUFACTURER>},
    {"model", "", "", deviceId<KM_TAG_ATTESTATION_ID_MODEL>},
    {"rollback_resistance", "no",
     "What the hardware has: keys that cannot come back after deletion; a clock that it trusts\n"
     "enough to enforce the dates of keys; a button that proves the user's presence (SIGUSR1 to\n"
     "the daemon presses it).",
     [](DeviceSettings& s, const std::string& v) { s.config.rollback_resistance = yesOrNo(v); }},
    {"trusted_clock", "no", "",
     [](DeviceSettings& s, const std::string& v) { s.config.trusted_clock = yesOrNo(v); }},
    {"user_presence", "no", "",
     [](DeviceSettings& s, const std::string& v) { s.config.user_presence = yesOrNo(v); }},
    {"test_attestation_keys", "no",
     "For tests only. yes: attest with the fixed, published test keys instead of this device's "
     "own.",
     [](DeviceSettings& s, const std::string& v) { s.config.test_attestation_keys = yesOrNo(v); }},
    {"fixed_time", "",
     "For tests only: clocks that stand still at this moment, in milliseconds since 1970-01-01 "
     "UTC.",
     [](DeviceSettings& s, const std::string& v) {
         s.fixed_time = v.empty() ? std::nullopt : std::optional(number(v));
     }},
    {"random_seed", "",
     "For tests only, never with keys that matter: \"random\" bytes that follow from this seed, "
     "in\n"
     "hexadecimal digits, and are the same in every run.",
     [](DeviceSettings& s, const std::string& v) {
         s.random_seed = v.empty() ? std::nullopt : std::optional(hexBytes(v));
     }},
};

const Key* findKey(const std::string& name) {
    for (const Key& key : kKeys) {
        if (key.name == name) return &key;
    }
    return nullptr;
}

// "key = value"; throws BadValue for anything else.
void applyLine(DeviceSettings& settings, std::set<std::string>& seen, const std::string& line) {
    const size_t equals = line.find('=');
    if (equals == std::string::npos) throw BadValue("key = value");
    const std::string name = trimmed(line.substr(0, equals));
    const Key* key = findKey(name);
    if (key == nullptr) throw BadValue("a known key, not '" + name + "'");
    if (!seen.insert(name).second) {
        throw BadValue("'" + name + "' only once, and a line above has it");
    }
    try {
        key->set(settings, trimmed(line.substr(equals + 1)));
    } catch (const BadValue& bad) {
        throw BadValue("for " + name + " " + bad.what());
    }
}

}  // namespace

DeviceSettings parseDeviceConfig(const std::string& text, const std::string& file) {
    DeviceSettings settings;
    std::set<std::string> seen;
    std::istringstream lines(text);
    std::string line;
    for (unsigned number_of_line = 1; std::getline(lines, line); ++number_of_line) {
        line = trimmed(line);
        if (line.empty() || line[0] == '#') continue;
        try {
            applyLine(settings, seen, line);
        } catch (const BadValue& bad) {
            throw StateError(file + ", line " + std::to_string(number_of_line) + ": expected " +
                             bad.what());
        }
    }
    return settings;
}

std::string defaultConfigText() {
    std::string text =
        "# The facts of the device that this software secure application represents.\n"
        "# They are read at start. A key that is missing has the value shown here.\n";
    for (const Key& key : kKeys) {
        if (*key.comment != 0) {
            text += "\n# ";
            for (const char* c = key.comment; *c != 0; ++c) {
                text += *c;
                if (*c == '\n') text += "# ";
            }
            text += "\n";
        }
        text += std::string(key.name) + " =" + (*key.first_value != 0 ? " " : "") +
                key.first_value + "\n";
    }
    return text;
}

DeviceSettings loadDeviceConfig(const std::string& directory) {
    const std::string path = directory + "/" + kConfigFileName;
    const FileHandle held = lockFile(directory + "/" + kLockName);
    if (const std::optional<Bytes> content = readPrivateFile(path)) {
        return parseDeviceConfig(std::string(content->begin(), content->end()), path);
    }
    const std::string text = defaultConfigText();
    const Bytes content(text.begin(), text.end());
    // An empty file says the same.
    writePrivateFile(path, content);
    DeviceSettings settings = parseDeviceConfig(text, path);
    settings.is_new = true;
    return settings;
}

}  // namespace lumo::secureapp
