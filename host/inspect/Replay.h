// Sending the requests of a trace again, to an application that chooses its blobs, handles and
// nonces anew. What is compared, and how, stands in docs/trace.md.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "inspect/TraceLine.h"

namespace lumo::inspect {

// Why a line is not sent.
enum class Skip {
    kNone,
    kRedacted,     // a secret of the request is not in the trace
    kForeignMac,   // a token was made under another HMAC key, or for another operation
    kDepends,      // on something that a line which was left out, or is not there, would have made
    kUnanswered,   // the recorded request did not reach the application
    kDestructive,  // it would destroy more than the trace makes
};
const char* nameOf(Skip skip);    // "foreignMac"
const char* describe(Skip skip);  // "with a foreign MAC"

// What comes back from the application at hand.
struct Answer {
    int32_t code = 0;
    std::optional<Bytes> response;
};

// Goes through a trace line by line: prepare(), send what it gives, compare().
class Replay {
  public:
    // `destructive`: requests that destroy more than the trace made are sent as well.
    explicit Replay(bool destructive) : destructive_(destructive) {}

    // The application at hand has been started anew: operations and the HMAC key are gone.
    void reboot();

    // Into `request`, with what the application at hand chose in place of what the recorded one
    // chose. Otherwise why it is not sent.
    Skip prepare(const Exchange& exchange, Bytes& request);

    // Operations at hand that will not be ended, since a part of them was left out: level, handle.
    std::vector<std::pair<uint32_t, uint64_t>> takeAbandoned();

    // What differs, in words; empty where nothing that matters does. For the line that was
    // prepared last.
    std::string compare(const Exchange& exchange, const Answer& answer);

  private:
    struct Operation {
        uint64_t handle = 0;  // here
        uint32_t purpose = 0;
        bool same_key = false;
        bool lost = false;  // a part of it was left out
        Bytes recorded_output, output;
        // The known output that the input so far repeats, and how much of it.
        std::optional<size_t> source;
        size_t position = 0;
    };
    struct Blob {
        Bytes here;
        bool same_key = false;  // the key inside is the recorded one, since it was imported
        bool lost = false;
    };
    using Handle = std::pair<uint32_t, uint64_t>;  // level, recorded handle
    using Contents = std::vector<std::pair<const Field*, Bytes>>;

    Skip replace(const Exchange& exchange, const Message& request, Contents& contents);
    Skip replaceInput(const Field& field, ByteView input, Contents& contents);
    Skip replaceSignature(const Field& field, ByteView signature, Contents& contents) const;
    void lose(const Exchange& exchange, const Message& request);
    std::string compareField(const Exchange& exchange, const Field& recorded, const Field& here,
                             ByteView recorded_bytes, ByteView here_bytes) const;
    std::string compareOutput(ByteView recorded, ByteView here, bool hidden) const;
    void learn(const Exchange& exchange, const Message& recorded, const Message& here,
               ByteView answer);

    const bool destructive_;
    std::map<Bytes, Blob> blobs_;
    std::map<Handle, Operation> operations_;
    std::map<Bytes, Bytes> nonces_;
    std::map<Bytes, Bytes> sharing_;  // seed and nonce
    std::vector<std::pair<Bytes, Bytes>> outputs_;
    std::set<uint32_t> same_hmac_;  // levels that agreed on the recorded HMAC key
    std::vector<std::pair<uint32_t, uint64_t>> abandoned_;

    // Of the line that was prepared last.
    Operation* operation_ = nullptr;
    bool same_key_ = true;
};

// A message in which some fields have other contents; lengths and places follow. A number is given
// as eight bytes, little-endian.
Bytes withContents(const Message& message, ByteView bytes,
                   const std::vector<std::pair<const Field*, Bytes>>& contents);

// The request that ends an operation.
Bytes abortRequest(Wire wire, uint32_t level, uint64_t handle, uint32_t& number);

}  // namespace lumo::inspect
