#include "secureapp/protocol/CborWriter.h"

#include <cbor.h>

#include <algorithm>

#include "secureapp/base/Params.h"

namespace lumo::secureapp {
namespace {

constexpr size_t kMaxHeadBytes = 9;
constexpr size_t kUsualBytes = 64;  // an answer without a key or a certificate
constexpr uint32_t kTagTypeMask = 0xF0000000;

// Appends `value` as one of libcbor's encoders writes it.
template <typename Value>
void appendHead(Bytes& message, size_t (*encode)(Value, unsigned char*, size_t), Value value) {
    uint8_t head[kMaxHeadBytes];
    const size_t size = encode(value, head, sizeof(head));
    message.insert(message.end(), head, head + size);
}

}  // namespace

CborWriter::CborWriter(size_t entries) {
    message_.reserve(kUsualBytes);
    appendHead(message_, cbor_encode_map_start, entries);
}

void CborWriter::appendNumber(uint64_t value) {
    appendHead(message_, cbor_encode_uint, value);
}

void CborWriter::appendSigned(uint64_t bits) {
    if (bits <= INT64_MAX) return appendNumber(bits);
    appendHead(message_, cbor_encode_negint, ~bits);
}

void CborWriter::appendBytes(ByteView value) {
    // Reserves room for the next heads too: growing for them would move a long value again.
    const size_t needed = message_.size() + value.size() + 4 * kMaxHeadBytes;
    if (needed > message_.capacity()) message_.reserve(std::max(needed, 2 * message_.capacity()));
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

void CborWriter::params(const ParamSet& params) {
    number(Label::kParamCount, params.size());
    for (const Param& param : params) appendParam(param);
}

void CborWriter::appendParam(const Param& param) {
    const uint32_t tag = static_cast<uint32_t>(param.tag);
    appendNumber(tag);
    switch (static_cast<int32_t>(tag & kTagTypeMask)) {
        case KM_BIGNUM:
        case KM_BYTES:
            return appendBytes(param.bytes);
        case KM_BOOL:
            return appendHead(message_, cbor_encode_bool, true);
        default:
            return appendSigned(param.integer);
    }
}

}  // namespace lumo::secureapp
