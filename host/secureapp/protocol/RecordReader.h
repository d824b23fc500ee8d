// Reads a fixed-layout request: a header of 32-bit little-endian words, followed by what the header
// points at with offsets from the start of the request.
//
// Whatever lies outside the request, or within its header, throws
// Refusal(KM_ERROR_INVALID_ARGUMENT).
#pragma once

#include "secureapp/base/Params.h"

namespace lumo::secureapp {

constexpr size_t kWordBytes = 4;

// The word at byte offset `offset`, which must lie within `bytes`.
uint32_t loadWord(ByteView bytes, size_t offset);

class RecordReader {
  public:
    // `request` must outlive the reader and the views it gives out.
    RecordReader(ByteView request, size_t header_words);

    uint32_t word(size_t index) const;
    // Two words, the low one first.
    uint64_t longWord(size_t index) const;
    // What the pair (offset, length in bytes) at word `index` points at; (0, 0) is nothing.
    ByteView item(size_t index) const;
    ByteView itemAt(uint32_t offset, uint32_t length) const;
    // The parameter set of the pair (offset, count) at word `index`.
    ParamSet params(size_t index) const;

  private:
    std::optional<Param> param(ByteView record) const;

    ByteView request_;
    size_t header_bytes_;
};

// Builds an answer: words first, then bytes.
class RecordWriter {
  public:
    explicit RecordWriter(size_t words) : bytes_(words * kWordBytes, 0) {}

    void word(size_t index, uint32_t value);
    void longWord(size_t index, uint64_t value);
    // Fills the words from `index` on with `value`, which must fit into the words.
    void fill(size_t index, ByteView value);
    // Appends `value` and notes it in the pair (offset from the answer's start, length) at `index`.
    void append(size_t index, ByteView value);

    Bytes finish() { return std::move(bytes_); }

  private:
    Bytes bytes_;
};

}  // namespace lumo::secureapp
