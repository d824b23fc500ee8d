// A secure application in this process, and the library's way to it.
//
// Clock and randomness stand still, so that an input gives the same in every run; only what
// libcrypto draws by itself (new EC keys, nonces of ECDSA signatures) differs. Link
// AppTransport.cpp in place of the workstation's transport.
#pragma once

#include <vector>

#include "TestEnvironment.h"
#include "secureapp/protocol/SecureApp.h"

namespace lumo::fuzz {

class AppTransport {
  public:
    // Devices that are made while it lives talk to `app`. One at a time.
    AppTransport(const char* profile, keymaster_security_level_t level,
                 const secureapp::DeviceConfig& config);
    ~AppTransport();
    AppTransport(const AppTransport&) = delete;
    AppTransport& operator=(const AppTransport&) = delete;

    static AppTransport& current();

    test::MemoryState own;
    test::MemoryState shared;
    test::FixedClock clock;
    test::CountingRandom random;
    secureapp::SecureApp app;

    // Whether a failing allocation may also be one of the secure application's.
    bool app_runs_out_of_memory = false;

    secureapp::Bytes request;  // of the last exchange
    // The transport's buffers.
    secureapp::Bytes cbor_request;
    secureapp::Bytes cbor_response;
    secureapp::Bytes shared_buffer;
    uint32_t command = 0;
};

}  // namespace lumo::fuzz
