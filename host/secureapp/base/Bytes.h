// Bytes, owned and borrowed, and the numbers within them.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace lumo::secureapp {

using Bytes = std::vector<uint8_t>;

// Borrowed bytes; valid as long as what they were taken from.
class ByteView {
  public:
    ByteView() = default;
    ByteView(const uint8_t* data, size_t size) : data_(data), size_(size) {}
    ByteView(const Bytes& bytes) : data_(bytes.data()), size_(bytes.size()) {}  // NOLINT: implicit

    const uint8_t* data() const { return data_; }
    size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    const uint8_t* begin() const { return data_; }
    const uint8_t* end() const { return data_ + size_; }
    uint8_t operator[](size_t i) const { return data_[i]; }
    // At most `size` bytes from `offset` on, cut at the end of the view.
    ByteView sub(size_t offset, size_t size = SIZE_MAX) const {
        if (offset >= size_) return {};
        return {data_ + offset, std::min(size, size_ - offset)};
    }
    Bytes copy() const { return {begin(), end()}; }

  private:
    const uint8_t* data_ = nullptr;
    size_t size_ = 0;
};

inline void append(Bytes& to, ByteView bytes) {
    to.insert(to.end(), bytes.begin(), bytes.end());
}
inline void append(Bytes& to, std::string_view text) {
    to.insert(to.end(), text.begin(), text.end());
}

// Numbers of `width` bytes, at most 8. What is loaded or stored must lie within its object.
uint64_t loadLittle(const uint8_t* from, size_t width);
uint64_t loadBig(const uint8_t* from, size_t width);
void storeLittle(uint8_t* to, uint64_t value, size_t width);
void appendLittle(Bytes& to, uint64_t value, size_t width);
void appendBig(Bytes& to, uint64_t value, size_t width);

}  // namespace lumo::secureapp
