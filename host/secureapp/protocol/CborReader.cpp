#include "secureapp/protocol/CborReader.h"

#include <cbor.h>

#include <algorithm>

#include "secureapp/base/Refusal.h"
#include "secureapp/base/Words.h"

namespace lumo::secureapp {

struct CborItem {
    enum class Type { kOther, kUnsigned, kNegative, kBytes, kArray, kMap, kBool };

    Type type = Type::kOther;
    uint64_t number = 0;  // value, encoded magnitude (0 means -1) or count
    ByteView bytes;
    size_t encoded_bytes = 0;
};

namespace {

constexpr unsigned kTagTypeShift = 28;

template <typename... Parts>
[[noreturn]] void refuseMalformed(const Parts&... parts) {
    refuse(KM_ERROR_INVALID_ARGUMENT, "the request's CBOR: ", parts...);
}

uint64_t numberOf(Label label) {
    return static_cast<uint64_t>(label);
}

// RFC 8949, 4.2.1: the size of an item's head in its shortest form.
size_t shortestHead(uint64_t number) {
    if (number < 24) return 1;
    if (number <= UINT8_MAX) return 2;
    if (number <= UINT16_MAX) return 3;
    if (number <= UINT32_MAX) return 5;
    return 9;
}

using Type = CborItem::Type;

template <Type type, typename Number>
void note(void* context, Number number) {
    CborItem* item = static_cast<CborItem*>(context);
    item->type = type;
    item->number = number;
}

void noteBytes(void* context, cbor_data data, size_t size) {
    note<Type::kBytes, size_t>(context, size);
    static_cast<CborItem*>(context)->bytes = ByteView(data, size);
}

// Notes the kinds of item that a request may hold; all others stay Type::kOther.
cbor_callbacks makeCallbacks() {
    cbor_callbacks set = cbor_empty_callbacks;
    set.uint8 = note<Type::kUnsigned, uint8_t>;
    set.uint16 = note<Type::kUnsigned, uint16_t>;
    set.uint32 = note<Type::kUnsigned, uint32_t>;
    set.uint64 = note<Type::kUnsigned, uint64_t>;
    set.negint8 = note<Type::kNegative, uint8_t>;
    set.negint16 = note<Type::kNegative, uint16_t>;
    set.negint32 = note<Type::kNegative, uint32_t>;
    set.negint64 = note<Type::kNegative, uint64_t>;
    set.array_start = note<Type::kArray, size_t>;
    set.map_start = note<Type::kMap, size_t>;
    set.boolean = note<Type::kBool, bool>;
    set.byte_string = noteBytes;
    return set;
}

bool isInteger(const CborItem& item) {
    return item.type == Type::kUnsigned || item.type == Type::kNegative;
}

bool isLabel(const CborItem& item, Label label) {
    return item.type == Type::kUnsigned && item.number == static_cast<uint64_t>(label);
}

uint64_t numberIn(const CborItem& item, Label label) {
    if (item.type != Type::kUnsigned) {
        refuseMalformed("label ", numberOf(label), " has no unsigned number");
    }
    return item.number;
}

ByteView bytesIn(const CborItem& item, Label label) {
    if (item.type != Type::kBytes) {
        refuseMalformed("label ", numberOf(label), " has no byte string");
    }
    return item.bytes;
}

}  // namespace

CborItem CborReader::peek() const {
    static const cbor_callbacks callbacks = makeCallbacks();
    const ByteView rest = message_.sub(position_);
    CborItem item;
    const cbor_decoder_result result =
        cbor_stream_decode(rest.data(), rest.size(), &callbacks, &item);
    if (result.status != CBOR_DECODER_FINISHED) {
        refuseMalformed("no whole item stands at byte ", position_);
    }
    item.encoded_bytes = result.read;
    const size_t head = result.read - item.bytes.size();
    if (item.type != Type::kBool && head != shortestHead(item.number)) {
        refuseMalformed("the item at byte ", position_, " is unknown, or not in its shortest form");
    }
    return item;
}

CborItem CborReader::next() {
    CborItem item = peek();
    position_ += item.encoded_bytes;
    return item;
}

CborReader::CborReader(ByteView message) : message_(message) {
    const CborItem map = next();
    if (map.type != Type::kMap) refuseMalformed("it is no map");
    entries_left_ = map.number;
}

// Whether the next entry has this label; then its value comes next.
bool CborReader::enters(Label label) {
    if (entries_left_ == 0) return false;
    const CborItem found = peek();
    if (!isLabel(found, label)) return false;
    position_ += found.encoded_bytes;
    --entries_left_;
    return true;
}

CborItem CborReader::value(Label label) {
    if (entries_left_ == 0) {
        refuseMalformed("it ends where label ", numberOf(label), " should come");
    }
    const CborItem found = next();
    if (!isLabel(found, label)) {
        refuseMalformed("the item before byte ", position_, " is not label ", numberOf(label));
    }
    --entries_left_;
    return next();
}

uint64_t CborReader::number(Label label) {
    return numberIn(value(label), label);
}

uint32_t CborReader::number32(Label label) {
    const uint64_t wide = number(label);
    if (wide > UINT32_MAX) {
        refuseMalformed("label ", numberOf(label), " has a number of more than 32 bits");
    }
    return static_cast<uint32_t>(wide);
}

ByteView CborReader::bytes(Label label) {
    return bytesIn(value(label), label);
}

ByteView CborReader::optionalBytes(Label label) {
    return enters(label) ? bytesIn(next(), label) : ByteView();
}

bool CborReader::flag(Label label) {
    const CborItem item = value(label);
    if (item.type != Type::kBool) refuseMalformed("label ", numberOf(label), " has no boolean");
    return item.number != 0;
}

void CborReader::skipDate(Label label) {
    const CborItem array = value(label);
    if (array.type != Type::kArray || array.number != kDateFields) {
        refuseMalformed("label ", numberOf(label), " has no date of ", kDateFields, " fields");
    }
    for (size_t i = 0; i < kDateFields; ++i) {
        const CborItem field = next();
        if (!isInteger(field) || field.number > INT32_MAX) {
            refuseMalformed("a field of the date at label ", numberOf(label),
                            " is no 32-bit number");
        }
    }
}

ParamSet CborReader::params() {
    return paramsAfter(value(Label::kParamCount));
}

ParamSet CborReader::optionalParams() {
    return enters(Label::kParamCount) ? paramsAfter(next()) : ParamSet();
}

ParamSet CborReader::paramsAfter(const CborItem& item) {
    const uint64_t count = numberIn(item, Label::kParamCount);
    if (count > entries_left_) {
        refuseMalformed(count, " parameters are announced, ", entries_left_, " entries follow");
    }
    constexpr size_t kMinEntryBytes = 2;
    const size_t possible = (message_.size() - position_) / kMinEntryBytes;
    ParamSet params;
    params.reserve(static_cast<size_t>(std::min<uint64_t>(count, possible)));
    for (uint64_t i = 0; i < count; ++i) params.add(param());
    return params;
}

// A tag travels as a signed 32-bit number: those with the top bit set (big numbers, byte strings,
// repeated 64-bit numbers) are negative.
Param CborReader::param() {
    const CborItem label = next();
    --entries_left_;
    const bool negative = label.type == Type::kNegative;
    if (!isInteger(label) || label.number > INT32_MAX) {
        refuseMalformed("the item before byte ", position_, " is no tag");
    }
    const uint32_t tag = static_cast<uint32_t>(negative ? ~label.number : label.number);
    const CborItem item = next();

    Param param;
    param.tag = static_cast<keymaster_tag_t>(tag);
    switch (static_cast<int32_t>(tag >> kTagTypeShift << kTagTypeShift)) {
        case KM_ENUM:
        case KM_ENUM_REP:
        case KM_UINT:
        case KM_UINT_REP:
            if (item.type != Type::kUnsigned || item.number > UINT32_MAX) {
                refuseMalformed(tagName(param.tag), " has no unsigned 32-bit number");
            }
            param.integer = item.number;
            return param;
        case KM_ULONG:
        case KM_DATE:
        case KM_ULONG_REP:
            // Sent as a signed number; the value is its 64 bits.
            if (!isInteger(item) || item.number > INT64_MAX) {
                refuseMalformed(tagName(param.tag), " has no signed 64-bit number");
            }
            param.integer = item.type == Type::kNegative ? ~item.number : item.number;
            return param;
        case KM_BOOL:
            if (item.type != Type::kBool || item.number == 0) {
                refuseMalformed(tagName(param.tag), " has another value than true");
            }
            param.integer = 1;
            return param;
        case KM_BIGNUM:
        case KM_BYTES:
            if (item.type != Type::kBytes) {
                refuseMalformed(tagName(param.tag), " has no byte string of its own");
            }
            param.bytes = item.bytes.copy();
            return param;
        default:
            refuseMalformed("tag ", hexWord(tag), " is of no known type");
    }
}

void CborReader::finish() const {
    if (entries_left_ != 0 || position_ != message_.size()) {
        refuseMalformed(entries_left_, " entries and ", message_.size() - position_,
                        " bytes follow the last one of this command");
    }
}

}  // namespace lumo::secureapp
