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
// Behind each of them, after a colon or a comma, faults on command, as often as wanted:
//   fault=KIND[:NUMBER]@COMMAND[#WHICH]  and  seed=N  for what they leave to chance
// Anything else is refused; there is never a fallback from one to another.
#pragma once

#include <hardware/keymaster_defs.h>

#include <cstddef>
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

// What is known of a secure application that was reached.
struct TransportFacts {
    bool records = false;  // it takes fixed-layout records; else CBOR
    uint32_t keymaster_version = 0;
    uint32_t ta_minor_version = 0;
    uint32_t hal_minor_version = 0;
    // The most bytes of a message in each direction; 0 where nothing but memory bounds it. Records
    // of both directions lie in one region together.
    size_t largest_request = 0;
    size_t largest_response = 0;
    // Where one in this process keeps its secrets; empty for any other.
    std::string state_directory;
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
    // Only where the status is ok.
    TransportFacts facts() const;

  private:
    struct Opened;
    std::unique_ptr<Opened> opened_;
    TransportStatus status_;
};

// The same for programs that create no object next.
TransportStatus checkTransport(keymaster_security_level_t level);

// How an exchange with the secure application ended, with what is said of it beside the protocol.
struct ExchangeReason {
    enum Cause {
        none,       // it succeeded, or there was no exchange yet
        refusal,    // the secure application refused
        storage,    // the secure application's storage failed
        transport,  // the secure application was not reached, or its answer did not come
        usage,      // LUMO_TRANSPORT cannot be understood
        fault,      // it went through, but met a fault on command, which may have damaged the reply
    };
    // The command's outcome on both protocols: for a record the status in its answer, before any
    // damage to it.
    keymaster_error_t code = KM_ERROR_OK;
    Cause cause = none;
    // One sentence for people, without secrets; empty when there was none to say. That of a refusal
    // compares values, that of a failure says what to try as well, that of a fault names it.
    std::string text;
};

// That of the calling thread's latest exchange. A link that cannot be opened counts as an exchange;
// one that is open already does not. Stays as it is until this thread's next exchange.
const ExchangeReason& lastExchangeReason();

// The state directory in which this process made a new device; empty where none was made. For
// programs that want to say so: a mistyped name of a directory ends in a new device without keys.
std::string newStateDirectory();

// Whether each exchange is written to the log, off by default: one line of tag lumo-transport and
// priority INFO with the command, the lengths, the code and the reason.
void logExchanges(bool wanted);

// The failure that the calling thread's latest exchange met; ok when it met none, whatever its
// command's outcome was.
TransportStatus lastTransportFailure();

}  // namespace lumo
