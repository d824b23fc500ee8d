// One request to a secure application with all that its carrier brings back.
#pragma once

#include "secureapp/protocol/SecureApp.h"

namespace lumo::secureapp {

struct Answer {
    // CBOR: the command's outcome. Records: that of the exchange; the status is in the body.
    keymaster_error_t error = KM_ERROR_OK;
    Bytes body;
    // Why the storage made the command fail, in words; else empty.
    std::string state_failure;
};

Answer exchangeCbor(SecureApp& app, uint32_t command, ByteView request, uint64_t client = 0);
Answer exchangeRecord(SecureApp& app, ByteView request, ByteView area, size_t capacity,
                      uint64_t client = 0);

}  // namespace lumo::secureapp
