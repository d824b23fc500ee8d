// What a program on the workstation may ask about the transport beside the maker's interface.
//
// The environment variable LUMO_TRANSPORT names the transport; unset or empty means sim.
//   sim                  the secure application in this process
//   sim:profile=NAME     the same, playing another one: cbor (default), legacy-4, legacy-3,
//                        legacy-3-encoding
//   unix:PATH            the daemon that listens at PATH. After a restart of the daemon an object
//                        gets one KM_ERROR_SECURE_HW_COMMUNICATION_FAILED; then it works again
//   unix:PATH,replay=no  the same, but nothing is said to a restarted daemon that the object does
//                        not say itself: it must be configured anew
// Anything else is refused; there is never a fallback from one to another.
#pragma once

#include <hardware/keymaster_defs.h>

#include <memory>
#include <string>

namespace lumo {

struct TransportStatus {
    enum Kind {
        ok,
        usage,      // LUMO_TRANSPORT cannot be understood
        transport,  // the secure application cannot be reached
        state,      // its storage failed
    };
    Kind kind = ok;
    std::string message;  // one line: what failed and what to try; empty when ok
};

// Opens what LUMO_TRANSPORT names, without a command that changes anything. For programs that want
// to end politely before they create a service object, whose start cannot fail any other way than
// by ending the process. A secure application in this process that an object is to use as well is
// started once if the check lives until the object does.
class TransportCheck {
  public:
    explicit TransportCheck(keymaster_security_level_t level);
    ~TransportCheck();
    TransportCheck(const TransportCheck&) = delete;
    TransportCheck& operator=(const TransportCheck&) = delete;

    const TransportStatus& status() const { return status_; }

  private:
    struct Opened;
    std::unique_ptr<Opened> opened_;
    TransportStatus status_;
};

// The same for programs that create no object next.
TransportStatus checkTransport(keymaster_security_level_t level);

// The most recent failure of a transport of this process; ok when there was none.
TransportStatus lastTransportFailure();

}  // namespace lumo
