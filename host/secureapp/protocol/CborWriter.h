// Writes an answer: one CBOR map, entries in the order of the calls.
#pragma once

#include "secureapp/base/Params.h"
#include "secureapp/protocol/CborReader.h"

namespace lumo::secureapp {

class CborWriter {
  public:
    // `entries` pairs follow; a key parameter set takes one for its count and one each. One whose
    // long value has about `long_bytes` is written without moving it.
    explicit CborWriter(size_t entries, size_t long_bytes = 0);

    void number(Label label, uint64_t value);
    void bytes(Label label, ByteView value);
    // A set of parameters whose values are bytes: no answer has others. Tags are written as
    // positive labels, unlike in requests: the client refuses negative ones.
    void bytesParams(const ParamSet& params);
    // An entry whose value `append` appends to the message itself, usually `expected` bytes. Where
    // it appends nothing the map has one entry less.
    template <typename Append>
    void bytesIfAny(Label label, size_t expected, Append append) {
        const OpenEntry entry = open(label, expected);
        append(message_);
        close(entry);
    }

    Bytes finish() { return std::move(message_); }

  private:
    // An entry whose value is being written: where it begins, its value's head, and its value.
    struct OpenEntry {
        size_t start, head, value, expected;
    };
    OpenEntry open(Label label, size_t expected);
    void close(const OpenEntry& entry);

    void appendNumber(uint64_t value);
    void appendBytes(ByteView value);
    void reserveFor(size_t bytes);

    Bytes message_;
};

}  // namespace lumo::secureapp
