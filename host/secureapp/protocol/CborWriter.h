// Writes an answer: one CBOR map, entries in the order of the calls.
#pragma once

#include "secureapp/base/Params.h"
#include "secureapp/protocol/CborReader.h"

namespace lumo::secureapp {

class CborWriter {
  public:
    // `entries` pairs follow; a key parameter set takes one for its count and one each.
    explicit CborWriter(size_t entries);

    void number(Label label, uint64_t value);
    void bytes(Label label, ByteView value);
    // Tags are written as positive labels, unlike in requests: the client refuses negative ones.
    void params(const ParamSet& params);

    Bytes finish() { return std::move(message_); }

  private:
    void appendNumber(uint64_t value);
    void appendSigned(uint64_t bits);
    void appendBytes(ByteView value);
    void appendParam(const Param& param);

    Bytes message_;
};

}  // namespace lumo::secureapp
