// Writes an answer: one CBOR map, entries in the order of the calls.
#pragma once

#include <functional>

#include "secureapp/base/Params.h"
#include "secureapp/protocol/CborReader.h"

namespace lumo::secureapp {

class CborWriter {
  public:
    // `entries` pairs follow; a key parameter set takes one for its count and one each.
    explicit CborWriter(size_t entries);

    void number(Label label, uint64_t value);
    void bytes(Label label, ByteView value);
    // A set of parameters whose values are bytes: no answer has others. Tags are written as
    // positive labels, unlike in requests: the client refuses negative ones.
    void bytesParams(const ParamSet& params);
    // An entry whose value `append` appends to the message itself, usually `expected` bytes. Where
    // it appends nothing the map has one entry less.
    void bytesIfAny(Label label, size_t expected, const std::function<void(Bytes&)>& append);

    Bytes finish() { return std::move(message_); }

  private:
    void appendNumber(uint64_t value);
    void appendBytes(ByteView value);
    void reserveFor(size_t bytes);

    Bytes message_;
};

}  // namespace lumo::secureapp
