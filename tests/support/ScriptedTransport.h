// A transport that answers from a script and records every call, for both kinds of exchange.
//
// Link `lumo_scripted_transport` in place of the workstation's transport. There is one script per
// process; a test starts with reset().
#pragma once

#include <hardware/keymaster_defs.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "Hex.h"

namespace lumo::test {

using Bytes = std::vector<uint8_t>;

// One call that the library made on the transport.
struct TransportCall {
    std::string name;         // the method's own name
    uint32_t command_id = 0;  // init: the identifier; send_cmd: the request's first word
    Bytes request;            // sendCmd, send_cmd: the bytes sent
    Bytes response_before;    // send_cmd: the response area before the secure application wrote
};

// What the secure application does with the next request.
struct TransportReply {
    int32_t result = 0;  // the send's own result
    Bytes response;
};

class ScriptedTransport {
  public:
    static ScriptedTransport& instance();

    // Back to a CBOR transport that works, has no replies and has seen no calls. The shared buffer
    // is filled with `fill`, so that words a request leaves alone can be recognised.
    void reset(uint8_t fill = 0xEE);

    bool legacy = false;
    int32_t hsm_result = KM_ERROR_OK;
    uint32_t keymaster_version = 4;
    uint32_t ta_minor_version = 0;
    uint32_t hal_minor_version = 0;
    size_t cbor_capacity = 40960;
    size_t shared_buffers = SIZE_MAX;             // how often the shared buffer is handed out
    uint32_t level = KM_SECURITY_LEVEL_SOFTWARE;  // of the last transport made

    std::deque<TransportReply> replies;  // taken front first; none left means an empty answer
    std::vector<TransportCall> calls;

    // Puts a successful reply at the end of the script.
    void willReply(Bytes response) { replies.push_back({0, std::move(response)}); }

    // The names of the calls so far, joined with blanks.
    std::string callNames() const;
    // The last sendCmd or send_cmd; the test fails when there was none.
    const TransportCall& lastSent() const;
    // How many requests were sent.
    size_t sentCount() const;

    uint8_t* sharedBuffer() { return shared_.get(); }

    // The transport's side; used by the implementation of KeymasterUtils.
    TransportReply takeReply();
    Bytes cbor_request;   // exactly the capacity
    Bytes cbor_response;  // the last answer
    uint32_t pending_command = 0;

  private:
    std::unique_ptr<uint8_t[]> shared_;
};

// Little-endian 32-bit words, and the word at index `word` of `bytes`.
Bytes words(const std::vector<uint32_t>& values);
uint32_t wordAt(const Bytes& bytes, size_t word);
// `a` followed by `b`.
Bytes operator+(Bytes a, const Bytes& b);

}  // namespace lumo::test
