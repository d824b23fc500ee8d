#include "secureapp/keys/KeyVersions.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace lumo::secureapp {
namespace {

uint64_t valueOrZero(const ParamSet& params, keymaster_tag_t tag) {
    return params.integer(tag).value_or(0);
}

const char* nameOf(keymaster_tag_t tag) {
    if (tag == KM_TAG_OS_VERSION) return "OS version";
    if (tag == KM_TAG_OS_PATCHLEVEL) return "OS patch level";
    return tag == kTagVendorPatchlevel ? "vendor patch level" : "boot patch level";
}

// Version 0 is a system in development: whatever key comes, it is not newer.
bool isNewer(keymaster_tag_t tag, uint64_t key, uint64_t device) {
    return key > device && (tag != KM_TAG_OS_VERSION || device != 0);
}

}  // namespace

bool isPatchDate(uint64_t value) {
    const uint64_t year = value / 10000;
    const uint64_t month = value / 100 % 100;
    const uint64_t day = value % 100;
    return year >= 2011 && year <= 2099 && month >= 1 && month <= 12 && day <= 31;
}

void setVersions(ParamSet& authorizations, const ParamSet& versions) {
    for (const keymaster_tag_t tag : kVersionTags) authorizations.removeAll(tag);
    authorizations.add(versions);
}

bool isCurrent(const ParamSet& authorizations, const ParamSet& versions) {
    return std::all_of(std::begin(kVersionTags), std::end(kVersionTags), [&](keymaster_tag_t tag) {
        return valueOrZero(authorizations, tag) == valueOrZero(versions, tag);
    });
}

bool wouldDowngrade(const ParamSet& authorizations, const ParamSet& versions) {
    return std::any_of(std::begin(kVersionTags), std::end(kVersionTags), [&](keymaster_tag_t tag) {
        return isNewer(tag, valueOrZero(authorizations, tag), valueOrZero(versions, tag));
    });
}

std::string versionDifference(const ParamSet& authorizations, const ParamSet& versions) {
    std::string older;
    for (const keymaster_tag_t tag : kVersionTags) {
        const uint64_t key = valueOrZero(authorizations, tag);
        const uint64_t device = valueOrZero(versions, tag);
        if (key == device) continue;
        std::string words = std::string("key has ") + nameOf(tag) + " " + std::to_string(key) +
                            ", device has " + std::to_string(device);
        if (isNewer(tag, key, device)) return words;
        if (older.empty()) older = std::move(words);
    }
    return older;
}

std::string versionWords(const ParamSet& params) {
    std::string words;
    for (const keymaster_tag_t tag : kVersionTags) {
        const std::optional<uint64_t> value = params.integer(tag);
        if (!value) continue;
        words +=
            (words.empty() ? "" : ", ") + std::string(nameOf(tag)) + " " + std::to_string(*value);
    }
    return words.empty() ? "no version" : words;
}

}  // namespace lumo::secureapp
