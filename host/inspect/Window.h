// Borrowed bytes that remember where they stand, so that whatever is found in them can say at which
// byte. Nothing reaches outside: parts are cut at the end, and numbers need all of their bytes.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace lumo::inspect {

using Bytes = std::vector<uint8_t>;  // of the secure application's base as well

class Window {
  public:
    Window() = default;
    // `offset`: where the first byte stands in what the user gave.
    Window(const uint8_t* data, size_t size, size_t offset = 0)
        : data_(data), size_(size), offset_(offset) {}
    explicit Window(const Bytes& bytes) : Window(bytes.data(), bytes.size()) {}

    const uint8_t* data() const { return data_; }
    size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    size_t offset() const { return offset_; }
    const uint8_t* begin() const { return data_; }
    const uint8_t* end() const { return data_ + size_; }
    uint8_t operator[](size_t i) const { return data_[i]; }

    // At most `count` bytes from `from` on.
    Window sub(size_t from, size_t count = SIZE_MAX) const {
        from = std::min(from, size_);
        return {data_ + from, std::min(count, size_ - from), offset_ + from};
    }
    bool has(size_t from, size_t count) const { return from <= size_ && count <= size_ - from; }

    // Numbers of `width` bytes, at most 8; 0 where one of them lies outside.
    uint64_t little(size_t from, size_t width) const {
        uint64_t value = 0;
        if (has(from, width)) {
            while (width-- > 0) value = value << 8 | data_[from + width];
        }
        return value;
    }
    uint64_t big(size_t from, size_t width) const {
        uint64_t value = 0;
        if (has(from, width)) {
            for (size_t i = 0; i < width; ++i) value = value << 8 | data_[from + i];
        }
        return value;
    }

    bool allZero() const {
        return std::all_of(begin(), end(), [](uint8_t byte) { return byte == 0; });
    }
    Bytes copy() const { return Bytes(begin(), end()); }

    // The same bytes, wherever they stand.
    bool operator==(const Window& other) const {
        return std::equal(begin(), end(), other.begin(), other.end());
    }
    bool operator!=(const Window& other) const { return !(*this == other); }

  private:
    const uint8_t* data_ = nullptr;
    size_t size_ = 0;
    size_t offset_ = 0;
};

}  // namespace lumo::inspect
