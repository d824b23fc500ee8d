// The result of a request, in one shape from the keymaster to whoever shows it.
#pragma once

#include <hardware/keymaster_defs.h>

#include <string>

#include "secureapp/base/Bytes.h"

namespace lumo::secureapp {

// What caused an error.
enum class Cause : uint32_t {
    kNone = 0,     // success
    kRefusal = 1,  // the secure application refused
    kStorage = 2,  // its storage failed
};

struct Reply {
    // The command's outcome, on both protocols.
    keymaster_error_t error = KM_ERROR_OK;
    // For a CBOR command the message that answers it. For a record the whole answer with its status
    // word, also after an error; empty only where not even a status fits.
    Bytes body;
    // Beside the protocol, which has no field for them.
    Cause cause = Cause::kNone;
    std::string reason;  // in words; may be empty
};

}  // namespace lumo::secureapp
