// One line of a trace: an exchange with the secure application as one JSON object. What the members
// mean stands in docs/trace.md.
#pragma once

#include <chrono>
#include <optional>
#include <stdexcept>
#include <string>

#include "inspect/Message.h"

namespace lumo::inspect {

constexpr int kTraceVersion = 1;

// What the secure application says of itself.
struct Protocol {
    bool legacy = false;
    uint32_t keymaster_version = 0;
    uint32_t ta_minor_version = 0;
    uint32_t hal_minor_version = 0;
};

// Where a record's answer goes: its room, and for commands with output the place that the client
// wrote there beforehand.
struct AnswerArea {
    size_t capacity = 0;
    std::optional<uint32_t> offset;
    std::optional<uint32_t> room;
};

struct Exchange {
    std::chrono::system_clock::time_point time;  // of the request
    std::chrono::microseconds duration{0};
    std::string source;    // who wrote the line: "client" or "daemon"
    uint64_t process = 0;  // its id
    uint64_t link = 0;     // which of its connections, from 1 on
    uint64_t boot = 0;     // the daemon's boot that was reached; 0 where the process is the boot
    uint32_t level = 0;    // keymaster_security_level_t
    Protocol protocol;
    Wire wire = Wire::kCbor;
    uint32_t number = 0;  // the command's
    Bytes request;
    std::optional<AnswerArea> area;  // of records
    std::optional<Bytes> response;   // none where no answer came
    // Whether secrets are in the line. If not, zeros stand at these parts.
    bool unredacted = false;
    std::vector<Hidden> hidden_request;
    std::vector<Hidden> hidden_response;
    int32_t code = 0;    // the command's outcome on both wires
    std::string reason;  // beside the protocol; may be empty

    Message decodedRequest() const;
    Message decodedResponse() const;
};

// The word of the answer's area at which the client wrote the place for the output; nothing where
// the command has none.
std::optional<size_t> placeWord(uint32_t number);

// Replaces the secrets of the exchange by zeros; `purpose` is that of the operation, where it is
// one and known.
void redact(Exchange& exchange, std::optional<uint32_t> purpose);

class TraceError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Without a line end.
std::string toLine(const Exchange& exchange);
// Throws TraceError with what is wrong.
Exchange parseLine(const std::string& line);

// "2026-01-31T12:00:00.000001Z"
std::string timeText(std::chrono::system_clock::time_point time);

}  // namespace lumo::inspect
