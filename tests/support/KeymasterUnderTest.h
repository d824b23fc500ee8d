// A keymaster in surroundings that the test controls, and the parameters of common keys.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <sstream>

#include "Hex.h"
#include "TestEnvironment.h"
#include "secureapp/base/DeviceConfig.h"
#include "secureapp/base/Refusal.h"
#include "secureapp/keymaster/Keymaster.h"

namespace lumo::test {

using namespace secureapp;

constexpr auto kTee = KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT;
constexpr auto kStrongBox = KM_SECURITY_LEVEL_STRONGBOX;

// What a call refuses with; KM_ERROR_OK when it does not.
template <typename Call>
keymaster_error_t errorOf(Call call) try {
    call();
    return KM_ERROR_OK;
} catch (const Refusal& error) {
    return error.code();
}

// What it says then.
template <typename Call>
std::string reasonOf(Call call) try {
    call();
    return {};
} catch (const Refusal& error) {
    return error.reason();
}

struct Device {
    FixedClock clock;
    CountingRandom random;
    MemoryState state;
    MemoryState shared;
    DeviceConfig config;
    KeymasterOptions options;
    ParamSet hal = {intParam(KM_TAG_OS_VERSION, 110000), intParam(KM_TAG_OS_PATCHLEVEL, 202012),
                    intParam(kTagVendorPatchlevel, 20201105)};
    std::unique_ptr<Keymaster> keymaster;

    explicit Device(keymaster_security_level_t level = kTee) {
        options.level = level;
        boot();
    }

    void boot() {
        bootUnconfigured();
        keymaster->configure(hal);
    }
    void bootUnconfigured() {
        keymaster = std::make_unique<Keymaster>(options, config, state, shared, clock, random);
    }
    Keymaster* operator->() { return keymaster.get(); }
};

inline ParamSet with(ParamSet params, const ParamSet& more) {
    params.add(more);
    return params;
}
inline ParamSet without(ParamSet params, keymaster_tag_t tag) {
    params.removeAll(tag);
    return params;
}

// "TAG=value ...", the tag in hexadecimal, the value in decimal or, of bytes, in hexadecimal.
inline std::string text(const ParamSet& params) {
    std::ostringstream out;
    for (const Param& each : params) {
        out << (out.tellp() > 0 ? " " : "") << std::hex << static_cast<uint32_t>(each.tag) << '='
            << std::dec << each.integer << toHex(each.bytes);
    }
    return out.str();
}

inline ParamSet aesKey() {
    return {
        intParam(KM_TAG_ALGORITHM, KM_ALGORITHM_AES), intParam(KM_TAG_KEY_SIZE, 128),
        intParam(KM_TAG_PURPOSE, KM_PURPOSE_ENCRYPT), intParam(KM_TAG_PURPOSE, KM_PURPOSE_DECRYPT),
        intParam(KM_TAG_BLOCK_MODE, KM_MODE_ECB),     intParam(KM_TAG_PADDING, KM_PAD_NONE)};
}
inline ParamSet ecKey() {
    return {intParam(KM_TAG_ALGORITHM, KM_ALGORITHM_EC), intParam(KM_TAG_KEY_SIZE, 256),
            intParam(KM_TAG_PURPOSE, KM_PURPOSE_SIGN), intParam(KM_TAG_PURPOSE, KM_PURPOSE_VERIFY),
            intParam(KM_TAG_DIGEST, KM_DIGEST_SHA_2_256)};
}
inline ParamSet rsaKey(uint64_t bits = 2048) {
    return {intParam(KM_TAG_ALGORITHM, KM_ALGORITHM_RSA), intParam(KM_TAG_KEY_SIZE, bits),
            intParam(KM_TAG_RSA_PUBLIC_EXPONENT, 65537)};
}

// Begin's parameters for aesKey().
inline ParamSet ecb() {
    return {intParam(KM_TAG_BLOCK_MODE, KM_MODE_ECB), intParam(KM_TAG_PADDING, KM_PAD_NONE)};
}

}  // namespace lumo::test
