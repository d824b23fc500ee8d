#include "secureapp/protocol/CborWriter.h"

#include <cbor.h>

#include <algorithm>

#include "secureapp/base/Params.h"

namespace lumo::secureapp {
namespace {

constexpr size_t kMaxHeadBytes = 9;
constexpr size_t kUsualBytes = 64;  // an answer without a key or a certificate

// Appends `value` as one of libcbor's encoders writes it.
template <typename Value>
void appendHead(Bytes& message, size_t (*encode)(Value, unsigned char*, size_t), Value value) {
    uint8_t head[kMaxHeadBytes];
    const size_t size = encode(value, head, sizeof(head));
    message.insert(message.end(), head, head + size);
}

}  // namespace

CborWriter::CborWriter(size_t entries, size_t long_bytes) {
    message_.reserve(kUsualBytes + long_bytes);
    appendHead(message_, cbor_encode_map_start, entries);
}

void CborWriter::appendNumber(uint64_t value) {
    appendHead(message_, cbor_encode_uint, value);
}

// Reserves room for the next heads too: growing for them would move a long value again.
void CborWriter::reserveFor(size_t bytes) {
    const size_t needed = message_.size() + bytes + 5 * kMaxHeadBytes;
    if (needed > message_.capacity()) message_.reserve(std::max(needed, 2 * message_.capacity()));
}

void CborWriter::appendBytes(ByteView value) {
    reserveFor(value.size());
    appendHead(message_, cbor_encode_bytestring_start, value.size());
    append(message_, value);
}

void CborWriter::number(Label label, uint64_t value) {
    appendNumber(static_cast<uint64_t>(label));
    appendNumber(value);
}

void CborWriter::bytes(Label label, ByteView value) {
    appendNumber(static_cast<uint64_t>(label));
    appendBytes(value);
}

CborWriter::OpenEntry CborWriter::open(Label label, size_t expected) {
    OpenEntry entry = {};
    entry.start = message_.size();
    entry.expected = expected;
    reserveFor(expected);
    appendNumber(static_cast<uint64_t>(label));
    entry.head = message_.size();
    appendHead(message_, cbor_encode_bytestring_start, expected);
    entry.value = message_.size();
    return entry;
}

void CborWriter::close(const OpenEntry& entry) {
    const size_t size = message_.size() - entry.value;
    if (size == entry.expected && size != 0) return;
    if (size == 0) {
        message_.resize(entry.start);
        --message_.front();  // a map of less than 24 entries has their number in its first byte
        return;
    }
    uint8_t fitting[kMaxHeadBytes];
    const size_t fitting_size = cbor_encode_bytestring_start(size, fitting, sizeof(fitting));
    const auto head = message_.begin() + static_cast<ptrdiff_t>(entry.head);
    const auto value = message_.begin() + static_cast<ptrdiff_t>(entry.value);
    message_.insert(message_.erase(head, value), fitting, fitting + fitting_size);
}

void CborWriter::bytesParams(const ParamSet& params) {
    number(Label::kParamCount, params.size());
    for (const Param& param : params) {
        appendNumber(static_cast<uint32_t>(param.tag));
        appendBytes(param.bytes);
    }
}

}  // namespace lumo::secureapp
