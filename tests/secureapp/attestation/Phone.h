// A keymaster with surroundings of its own, started as a HAL starts it.
#pragma once

#include <gtest/gtest.h>

#include <memory>

#include "../support/TestServices.h"
#include "Keymaster.h"

namespace lumo::test {

struct Phone {
    MemoryState own, shared;
    FixedClock clock;
    CountingRandom random;
    secureapp::World world;
    secureapp::KeymasterOptions options;
    std::unique_ptr<secureapp::Keymaster> keymaster;

    Phone() { world.test_attestation_keys = true; }

    // Starts it, anew if it runs already.
    secureapp::Keymaster& boot(uint32_t os_patchlevel = 202012) {
        keymaster =
            std::make_unique<secureapp::Keymaster>(options, world, own, shared, clock, random);
        keymaster->configure({secureapp::intParam(KM_TAG_OS_VERSION, 110000),
                              secureapp::intParam(KM_TAG_OS_PATCHLEVEL, os_patchlevel),
                              secureapp::intParam(KM_TAG_VENDOR_PATCHLEVEL, 20201205)});
        return *keymaster;
    }
};

// The error that `call` ends in; KM_ERROR_OK when it ends in none.
template <typename Call>
keymaster_error_t errorOf(Call call) {
    try {
        call();
    } catch (const secureapp::KeymasterError& error) {
        return error.code();
    }
    return KM_ERROR_OK;
}

}  // namespace lumo::test
