// Exchanges with hostile messages: as lines of a trace, and sent again.
//
// Input: one exchange behind the other. Each has a head (a byte of choices and the command's
// number, big-endian), request and response, each behind two bytes of length; with kOther the
// answer at hand, too. Beyond not crashing: a redacted message adds up where the whole one does, a
// line says what its exchange is, and what is answered as it was recorded makes no difference.

#include "Property.h"
#include "inspect/Replay.h"

namespace {

using lumo::fuzz::Input;
using lumo::inspect::Bytes;
using lumo::inspect::Exchange;
using lumo::inspect::Skip;
using lumo::inspect::Wire;

enum Choice : uint8_t {
    kRecord = 1,
    kStrongbox = 2,
    kOther = 4,  // the answer at hand is another one
    kRedacted = 8,
    kRefused = 16,  // the recorded code; a CBOR response is left out
    kReboot = 32,   // before it
    kLine = 64,     // it is written as a line, which takes most of the time
};

Bytes takeMessage(Input& input) {
    const size_t size = input.twoBytes();
    return input.take<Bytes>(size);
}

Exchange takeExchange(Input& input, uint8_t choices, uint32_t number) {
    Exchange exchange;
    exchange.source = "client";
    exchange.level = (choices & kStrongbox) != 0 ? KM_SECURITY_LEVEL_STRONGBOX
                                                 : KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT;
    exchange.wire = (choices & kRecord) != 0 ? Wire::kRecord : Wire::kCbor;
    exchange.protocol.legacy = exchange.wire == Wire::kRecord;
    exchange.number = number;
    exchange.request = takeMessage(input);
    exchange.response = takeMessage(input);
    if ((choices & kRefused) != 0) {
        exchange.code = KM_ERROR_INVALID_ARGUMENT;
        if (exchange.wire == Wire::kCbor) exchange.response.reset();
    }
    return exchange;
}

void requireSameParts(const std::vector<lumo::inspect::Hidden>& a,
                      const std::vector<lumo::inspect::Hidden>& b) {
    REQUIRE(std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const auto& x, const auto& y) {
        return x.offset == y.offset && x.size == y.size;
    }));
}

void requireLineTells(const Exchange& exchange) {
    const Exchange read = lumo::inspect::parseLine(toLine(exchange));
    REQUIRE(read.number == exchange.number && read.wire == exchange.wire);
    REQUIRE(read.level == exchange.level && read.code == exchange.code);
    REQUIRE(read.request == exchange.request && read.response == exchange.response);
    requireSameParts(read.hidden_request, exchange.hidden_request);
    requireSameParts(read.hidden_response, exchange.hidden_response);
}

// Zeros in place of secrets make a message neither better nor worse.
void requireRedactionKeepsSense(Exchange& exchange) {
    const bool request = exchange.decodedRequest().problems.empty();
    const bool response = exchange.decodedResponse().problems.empty();
    redact(exchange, std::nullopt);
    REQUIRE(exchange.decodedRequest().problems.empty() == request);
    REQUIRE(exchange.decodedResponse().problems.empty() == response);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr size_t kExchanges = 32;
    Input input(data, size);
    lumo::inspect::Replay replay(true);
    bool as_recorded = true;
    for (size_t i = 0; i < kExchanges && input.size() != 0; ++i) {
        const Bytes head = takeMessage(input);
        Input head_input(head.data(), head.size());
        const uint8_t choices = head_input.byte();
        Exchange exchange = takeExchange(input, choices, head_input.twoBytes());
        lumo::inspect::Answer answer = {exchange.code, exchange.response};
        if ((choices & kOther) != 0) answer.response = takeMessage(input);
        if ((choices & kRedacted) != 0) requireRedactionKeepsSense(exchange);
        if ((choices & kLine) != 0) requireLineTells(exchange);
        as_recorded = as_recorded && (choices & (kOther | kRedacted)) == 0;
        if ((choices & kReboot) != 0) replay.reboot();
        Bytes request;
        const Skip skip = replay.prepare(exchange, request);
        replay.takeAbandoned();
        if (skip != Skip::kNone) continue;
        REQUIRE(!as_recorded || request == exchange.request);
        const std::string difference = replay.compare(exchange, answer);
        REQUIRE(!as_recorded || difference.empty());
    }
    return 0;
}
