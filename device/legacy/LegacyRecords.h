// What the fixed-layout protocol is made of: 32-bit little-endian words, and bytes to which pairs
// of words (offset and length) point.
//
// A command names the words of its records in an enumeration, so that it reads as its record.
// Offsets in a request count from the start of the request, those in a response from the start of
// the response.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "ByteOrder.h"
#include "ByteReader.h"

namespace keymasterdevice {

inline constexpr uint32_t kWordBytes = 4;

// A length as the records carry it. One that needs more than 32 bits becomes the largest value,
// which no builder accepts.
inline uint32_t narrowLength(uint64_t length) {
    return static_cast<uint32_t>(std::min<uint64_t>(length, UINT32_MAX));
}

// Words of a record in a request, for which the builder has made room.
class LegacyRecord {
  public:
    LegacyRecord() = default;
    explicit LegacyRecord(uint8_t* start) : start_(start) {}

    // A record without a start, which follows an earlier failure, is not written.
    void setWord(uint32_t index, uint32_t value) {
        if (start_ != nullptr) storeLe32(start_ + size_t{index} * kWordBytes, value);
    }
    // 64 bits over two words, the low one first.
    void setWords64(uint32_t index, uint64_t value) {
        setWord(index, static_cast<uint32_t>(value));
        setWord(index + 1, static_cast<uint32_t>(value >> 32));
    }

  private:
    uint8_t* start_ = nullptr;
};

// A response, or a record inside it: from its start to the end of the shared buffer. What the
// secure application says is trusted within those bounds. A read outside them gives zeros or an
// empty span and sets the flag of the exchange, which is false until then.
class LegacyResponse {
  public:
    LegacyResponse(const ByteReader& bytes, bool* read_outside)
        : bytes_(bytes), read_outside_(read_outside) {}

    uint32_t word(uint32_t index) { return checked(bytes_.le32At(size_t{index} * kWordBytes)); }
    // 64 bits over two words, the low one first.
    uint64_t words64(uint32_t index) { return checked(bytes_.le64At(size_t{index} * kWordBytes)); }
    ByteSpan bytes(uint32_t offset, uint32_t length) {
        return checked(bytes_.bytesAt(offset, length));
    }
    // The bytes whose offset and length are the two words at `index`.
    ByteSpan item(uint32_t index) {
        const uint32_t offset = word(index);
        return bytes(offset, word(index + 1));
    }
    // The record that begins at `offset`; offsets in it count from its own start.
    LegacyResponse record(uint32_t offset) {
        return LegacyResponse(checked(bytes_.from(offset)), read_outside_);
    }

  private:
    template <typename Value>
    Value checked(Value value) {
        if (!bytes_.ok()) *read_outside_ = true;
        return value;
    }

    ByteReader bytes_;
    bool* read_outside_;
};

}  // namespace keymasterdevice
