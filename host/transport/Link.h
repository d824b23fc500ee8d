// The way from one transport object to one secure application.
#pragma once

#include <memory>

#include "secureapp/base/Bytes.h"
#include "secureapp/daemon/Frame.h"

namespace lumo::transport {

// Of the buffer for CBOR requests: holds the largest finish that a client may reasonably send in
// one piece.
constexpr size_t kRequestCapacity = 1 << 20;

// A link notes how each exchange ended (see Failures.h) and returns a code for it: none of these
// functions throws anything but std::bad_alloc.
class Link {
  public:
    virtual ~Link() = default;

    // Brings the link up where it is down; sends no command.
    virtual keymaster_error_t open() = 0;

    // What the secure application reports of itself; once the link was up, the last known. A link
    // that was up is taken to be up until an exchange fails.
    virtual secureapp::ServerFacts facts() = 0;

    // `response` holds until the next exchange.
    virtual keymaster_error_t exchangeCbor(uint32_t command, secureapp::ByteView request,
                                           secureapp::ByteView& response) = 0;

    // `response` has `capacity` bytes, labelled by the client; the answer is written there.
    virtual keymaster_error_t exchangeRecord(secureapp::ByteView request, uint8_t* response,
                                             size_t capacity) = 0;

    // For rehearsals. A link that cannot do it says so and gives a code.
    // The secure application restarts.
    virtual keymaster_error_t restart() { return KM_ERROR_UNIMPLEMENTED; }
    // The secure application finds its disk full during the next exchange.
    virtual keymaster_error_t fillDisk() { return KM_ERROR_UNIMPLEMENTED; }
};

// The link that LUMO_TRANSPORT names; where that cannot be understood, one that fails every call.
std::unique_ptr<Link> makeLink(keymaster_security_level_t level);

}  // namespace lumo::transport
