// Key blobs for tests, put together from numbers that stand apart from the library's own table.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace lumo::test {

// A little-endian value of `width` bytes at `offset`.
struct BlobField {
    size_t offset;
    size_t width;
    uint64_t value;
};

// Zeroes but for the magic, the version and the fields.
inline std::vector<uint8_t> blobOf(size_t size, uint32_t major, uint32_t minor,
                                   const std::vector<BlobField>& fields) {
    std::vector<uint8_t> blob(size);
    const auto put = [&](const BlobField& field) {
        for (size_t i = 0; i < field.width && field.offset + i < size; ++i) {
            blob[field.offset + i] = static_cast<uint8_t>(field.value >> (8 * i));
        }
    };
    put({0, 4, 0x4B4D4B44});
    put({8, 4, minor});
    put({12, 4, major});
    for (const BlobField& field : fields) put(field);
    return blob;
}

}  // namespace lumo::test
