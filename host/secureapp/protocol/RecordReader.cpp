#include "secureapp/protocol/RecordReader.h"

#include <algorithm>

#include "secureapp/base/Refusal.h"
#include "secureapp/base/Words.h"

namespace lumo::secureapp {
namespace {

// A parameter: tag, first and second value word.
constexpr size_t kParamBytes = 3 * kWordBytes;
constexpr size_t kFirstValue = kWordBytes;
constexpr size_t kSecondValue = 2 * kWordBytes;

constexpr uint32_t kTagTypeMask = 0xF0000000;
constexpr uint32_t kNoTag = 0xFFFFFFFF;

template <typename... Parts>
[[noreturn]] void refuseMalformed(const Parts&... parts) {
    refuse(KM_ERROR_INVALID_ARGUMENT, "the request's record: ", parts...);
}

bool equal(ByteView a, ByteView b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end());
}

}  // namespace

uint32_t loadWord(ByteView bytes, size_t offset) {
    return static_cast<uint32_t>(loadLittle(bytes.data() + offset, kWordBytes));
}

RecordReader::RecordReader(ByteView request, size_t header_words)
    : request_(request), header_bytes_(header_words * kWordBytes) {
    if (request.size() < header_bytes_) {
        refuseMalformed("its ", request.size(), " bytes are fewer than its ", header_words,
                        " words");
    }
}

uint32_t RecordReader::word(size_t index) const {
    if (index >= header_bytes_ / kWordBytes) {
        refuseMalformed("word ", index, " lies behind its header");
    }
    return loadWord(request_, index * kWordBytes);
}

uint64_t RecordReader::longWord(size_t index) const {
    return word(index) | static_cast<uint64_t>(word(index + 1)) << 32;
}

ByteView RecordReader::itemAt(uint32_t offset, uint32_t length) const {
    if (offset == 0 && length == 0) return {};
    if (offset < header_bytes_ || offset > request_.size()) {
        refuseMalformed("offset ", offset, " is not within bytes ", header_bytes_, " to ",
                        request_.size());
    }
    if (length > request_.size() - offset) {
        refuseMalformed(length, " bytes at offset ", offset, " end behind its ", request_.size());
    }
    return request_.sub(offset, length);
}

ByteView RecordReader::item(size_t index) const {
    return itemAt(word(index), word(index + 1));
}

ParamSet RecordReader::params(size_t index) const {
    const uint32_t count = word(index + 1);
    if (count > request_.size() / kParamBytes) {
        refuseMalformed(count, " parameters do not fit into its ", request_.size(), " bytes");
    }
    const ByteView array = itemAt(word(index), count * static_cast<uint32_t>(kParamBytes));
    ParamSet params;
    ByteView previous;
    for (size_t i = 0; i < count; ++i) {
        const ByteView record = array.sub(i * kParamBytes, kParamBytes);
        // For a parameter of unknown type the client sends the previous record again. A repeated
        // parameter means no more than a single one.
        if (equal(record, previous)) continue;
        previous = record;
        if (std::optional<Param> read = param(record)) params.add(std::move(*read));
    }
    return params;
}

// Words that a type does not need are left over from earlier parameters and ignored.
std::optional<Param> RecordReader::param(ByteView record) const {
    const uint32_t tag = loadWord(record, 0);
    // A parameter of unknown type that comes first in its set: nothing was written.
    if (tag == kNoTag) return std::nullopt;

    const uint32_t first = loadWord(record, kFirstValue);
    const uint32_t second = loadWord(record, kSecondValue);
    Param param;
    param.tag = static_cast<keymaster_tag_t>(tag);
    switch (static_cast<int32_t>(tag & kTagTypeMask)) {
        case KM_ENUM:
        case KM_ENUM_REP:
        case KM_UINT:
        case KM_UINT_REP:
            param.integer = first;
            return param;
        case KM_ULONG:
        case KM_DATE:
        case KM_ULONG_REP:
            param.integer = first | static_cast<uint64_t>(second) << 32;
            return param;
        case KM_BOOL:
            // A false boolean counts as absent.
            if ((first & 0xFF) == 0) return std::nullopt;
            param.integer = 1;
            return param;
        case KM_BIGNUM:
        case KM_BYTES:
            param.bytes = itemAt(first, second).copy();
            return param;
        default:
            refuseMalformed("a parameter's tag ", hexWord(tag), " is of no known type");
    }
}

void RecordWriter::word(size_t index, uint32_t value) {
    storeLittle(bytes_.data() + index * kWordBytes, value, kWordBytes);
}

void RecordWriter::longWord(size_t index, uint64_t value) {
    word(index, static_cast<uint32_t>(value));
    word(index + 1, static_cast<uint32_t>(value >> 32));
}

void RecordWriter::fill(size_t index, ByteView value) {
    std::copy(value.begin(), value.end(),
              bytes_.begin() + static_cast<std::ptrdiff_t>(index * kWordBytes));
}

void RecordWriter::append(size_t index, ByteView value) {
    word(index, static_cast<uint32_t>(bytes_.size()));
    word(index + 1, static_cast<uint32_t>(value.size()));
    secureapp::append(bytes_, value);
}

}  // namespace lumo::secureapp
