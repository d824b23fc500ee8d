// Checked reading of bytes that somebody else laid out.
#pragma once

#include <cstddef>
#include <cstdint>

#include "ByteOrder.h"

namespace keymasterdevice {

// Bytes that belong to someone else. `data` is not null where `length` is not 0.
struct ByteSpan {
    const uint8_t* data;
    size_t length;
};

// Little-endian fields of borrowed bytes, by their offset from the start. A read that does not lie
// wholly inside gives zero or an empty span and leaves ok() false from then on, so that a run of
// reads is tested once, at its end; values are used only after that test.
class ByteReader {
  public:
    ByteReader() = default;
    // A null `data` is no bytes, whatever `size` says.
    ByteReader(const uint8_t* data, size_t size) : data_(data), size_(data != nullptr ? size : 0) {}

    uint8_t byteAt(size_t offset) { return contains(offset, 1) ? data_[offset] : uint8_t{0}; }
    uint32_t le32At(size_t offset) { return contains(offset, 4) ? loadLe32(data_ + offset) : 0; }
    uint64_t le64At(size_t offset) { return contains(offset, 8) ? loadLe64(data_ + offset) : 0; }

    // An empty span is inside wherever it stands.
    ByteSpan bytesAt(size_t offset, size_t length) {
        if (length == 0 || !contains(offset, length)) return {data_, 0};
        return {data_ + offset, length};
    }

    // What begins at `offset`, which may be the very end. Its failures are its own.
    ByteReader from(size_t offset) {
        if (offset > size_) ok_ = false;
        return offset > size_ ? ByteReader(data_, 0) : ByteReader(data_ + offset, size_ - offset);
    }

    // Fails as a read does where the bytes end before `end`.
    void require(size_t end) { ok_ = ok_ && end <= size_; }

    bool ok() const { return ok_; }
    size_t size() const { return size_; }

  private:
    bool contains(size_t offset, size_t length) {
        const bool inside = offset <= size_ && length <= size_ - offset;
        ok_ = ok_ && inside;
        return inside;
    }

    const uint8_t* data_ = nullptr;
    size_t size_ = 0;
    bool ok_ = true;
};

}  // namespace keymasterdevice
