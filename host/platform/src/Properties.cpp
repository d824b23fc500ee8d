#include <android-base/properties.h>
#include <cutils/properties.h>
#include <errno.h>
#include <lumo/Properties.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <fstream>
#include <iostream>
#include <map>

namespace lumo {

namespace {

using Properties = std::map<std::string, std::string>;

constexpr char kPathVariable[] = "LUMO_PROPERTIES";
constexpr char kBlanks[] = " \t\r";

struct Store {
    PropertyFile file;
    Properties properties;
};

std::string propertiesPath() {
    const char* path = getenv(kPathVariable);
    return path == nullptr || *path == '\0' ? LUMO_DEFAULT_PROPERTIES : path;
}

std::string trim(const std::string& text) {
    const size_t begin = text.find_first_not_of(kBlanks);
    if (begin == std::string::npos) return "";
    return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

// False if the line is malformed.
bool parseLine(const std::string& line, Properties* properties) {
    const std::string text = trim(line);
    if (text.empty() || text[0] == '#') return true;
    if (text.find('\0') != std::string::npos) return false;
    const size_t equals = text.find('=');
    if (equals == std::string::npos) return false;
    const std::string name = trim(text.substr(0, equals));
    if (name.empty() || name.find_first_of(kBlanks) != std::string::npos) return false;
    (*properties)[name] = trim(text.substr(equals + 1));
    return true;
}

// Returns what is wrong with the file; empty if it was loaded.
std::string readFile(const std::string& path, Properties* properties) {
    std::ifstream in(path);
    if (!in) return "cannot open the property file " + path + ": " + strerror(errno);
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        if (parseLine(line, properties)) continue;
        return path + ":" + std::to_string(number) + ": expected a line name=value";
    }
    return in.bad() ? "cannot read the property file " + path : "";
}

// A property that libbase's store already holds was set explicitly and stays.
Store loadStore() {
    Store store;
    store.file.path = propertiesPath();
    store.file.error = readFile(store.file.path, &store.properties);
    if (!store.file.error.empty()) store.properties.clear();
    for (const auto& [name, value] : store.properties) {
        if (android::base::GetProperty(name, "").empty()) android::base::SetProperty(name, value);
    }
    return store;
}

const Store& store() {
    static const Store loaded = loadStore();
    return loaded;
}

// libbase's store does not distinguish an empty property from a missing one; the file does.
bool exists(const std::string& name) {
    return store().properties.count(name) != 0 || !android::base::GetProperty(name, "").empty();
}

// The property's value, or nothing if it is unset or empty. A faulty file is reported once.
std::string valueOf(const char* name) {
    static const bool reported = [] {
        const std::string& error = loadProperties().error;
        if (!error.empty()) std::cerr << error << '\n';
        return true;
    }();
    static_cast<void>(reported);
    return android::base::GetProperty(name, "");
}

}  // namespace

const PropertyFile& loadProperties() {
    return store().file;
}

std::vector<std::string> missingProperties(const std::vector<std::string>& names) {
    std::vector<std::string> missing;
    std::copy_if(names.begin(), names.end(), std::back_inserter(missing),
                 [](const std::string& name) { return !exists(name); });
    return missing;
}

}  // namespace lumo

namespace android::base {

bool WaitForPropertyCreation(const std::string& key,
                             std::chrono::milliseconds /*relative_timeout*/) {
    if (lumo::exists(key)) return true;
    const lumo::PropertyFile& file = lumo::loadProperties();
    const std::string reason =
        file.error.empty() ? "not in " + file.path + " (" + lumo::kPathVariable + " names another)"
                           : file.error;
    std::cerr << "the property " << key << " does not exist: " << reason << '\n';
    return false;
}

}  // namespace android::base

int property_get(const char* key, char* value, const char* default_value) {
    std::string found = lumo::valueOf(key);
    if (found.empty() && default_value != nullptr) found = default_value;
    const size_t length = std::min<size_t>(found.size(), PROPERTY_VALUE_MAX - 1);
    memcpy(value, found.data(), length);
    value[length] = '\0';
    return static_cast<int>(length);
}

int8_t property_get_bool(const char* key, int8_t default_value) {
    const std::string value = lumo::valueOf(key);
    for (const char* yes : {"1", "y", "yes", "on", "true"}) {
        if (value == yes) return 1;
    }
    for (const char* no : {"0", "n", "no", "off", "false"}) {
        if (value == no) return 0;
    }
    return default_value;
}

int64_t property_get_int64(const char* key, int64_t default_value) {
    lumo::loadProperties();
    return android::base::GetIntProperty<int64_t>(key, default_value);
}

int32_t property_get_int32(const char* key, int32_t default_value) {
    lumo::loadProperties();
    return android::base::GetIntProperty<int32_t>(key, default_value);
}

int property_set(const char* key, const char* value) {
    lumo::loadProperties();
    return android::base::SetProperty(key, value == nullptr ? "" : value) ? 0 : -1;
}
