// What every fuzz target needs: its input in pieces, its properties, and reads that the sanitizers
// see.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace lumo::fuzz {

// Ends the process with the text of a property that does not hold.
#define REQUIRE(property)                                                                      \
    do {                                                                                       \
        if (!(property)) {                                                                     \
            std::fprintf(stderr, "%s:%d: does not hold: %s\n", __FILE__, __LINE__, #property); \
            std::abort();                                                                      \
        }                                                                                      \
    } while (false)

// Ends the process where only a property that does not hold can lead.
#define BROKEN(text)                                                                    \
    do {                                                                                \
        std::fprintf(stderr, "%s:%d: does not hold: %s\n", __FILE__, __LINE__, (text)); \
        std::abort();                                                                   \
    } while (false)

// Reads every byte.
inline void touch(const void* memory, size_t size) {
    volatile uint8_t sink = 0;
    const auto* bytes = static_cast<const uint8_t*>(memory);
    for (size_t i = 0; i < size; ++i) sink = bytes[i];
    static_cast<void>(sink);
}

// The input, taken from the front. What is not there reads as zero.
class Input {
  public:
    Input(const uint8_t* data, size_t size) : data_(data), size_(size) {}

    uint8_t byte() { return size_ == 0 ? uint8_t{0} : *skip(1); }
    // Big-endian.
    uint16_t twoBytes() {
        const unsigned high = byte();
        return static_cast<uint16_t>(high << 8 | byte());
    }

    // `width` bytes, at most 8, big-endian.
    uint64_t number(size_t width) {
        uint64_t value = 0;
        for (size_t i = 0; i < width; ++i) value = value << 8 | byte();
        return value;
    }

    size_t size() const { return size_; }
    // At most `size` bytes, in the caller's container.
    template <typename Bytes>
    Bytes take(size_t size) {
        const size_t taken = std::min(size, size_);
        const uint8_t* start = skip(taken);
        return Bytes(start, start + taken);
    }

    // A length of `width` bytes, then as many; of a long one a single byte, which is repeated.
    template <typename Bytes>
    Bytes string(size_t width = 2) {
        constexpr size_t kLong = 4096;
        const auto size = static_cast<size_t>(number(width));
        return size < kLong ? take<Bytes>(size) : Bytes(size, byte());
    }

  private:
    const uint8_t* skip(size_t size) {
        const uint8_t* start = data_;
        if (size != 0) data_ += size;
        size_ -= size;
        return start;
    }

    const uint8_t* data_;
    size_t size_;
};

// A copy in a block of exactly its size, so that a read past its end is seen.
template <typename Bytes>
std::unique_ptr<uint8_t[]> exactCopy(const Bytes& bytes) {
    auto copy = std::make_unique<uint8_t[]>(bytes.size());
    std::copy(bytes.begin(), bytes.end(), copy.get());
    return copy;
}

}  // namespace lumo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
