#include "secureapp/keys/KeyVersions.h"

#include <algorithm>
#include <iterator>

namespace lumo::secureapp {
namespace {

uint64_t valueOrZero(const ParamSet& params, keymaster_tag_t tag) {
    return params.integer(tag).value_or(0);
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
        const uint64_t current = valueOrZero(versions, tag);
        if (tag == KM_TAG_OS_VERSION && current == 0) return false;
        return valueOrZero(authorizations, tag) > current;
    });
}

}  // namespace lumo::secureapp
