#include "CborHelpers.h"

#include <limits>

#include "NextItem.h"

namespace {

using keymasterdevice::fetchNext;

constexpr int32_t kUnexpected = 1;
constexpr int32_t kBadValue = -1;

// What a getter wants of the label. check() returns 0 or the error for an item with another one.

struct AnyLabel {
    int32_t check(const QCBORItem& /*item*/) const { return 0; }
};

struct IntegerLabel {
    uint64_t wanted;

    int32_t check(const QCBORItem& item) const {
        const bool integer =
            item.uLabelType == QCBOR_TYPE_INT64 || item.uLabelType == QCBOR_TYPE_UINT64;
        return integer && item.label.uint64 == wanted ? 0 : kUnexpected;
    }
};

struct TextLabel {
    const char* wanted;

    int32_t check(const QCBORItem& item) const {
        if (item.uLabelType != QCBOR_TYPE_TEXT_STRING) return kUnexpected;
        const size_t length = std::strlen(wanted);
        if (item.label.string.len != length) return kUnexpected;
        return std::memcmp(item.label.string.ptr, wanted, length);
    }
};

// What a getter wants of the value. read() returns false, with `out` untouched, for a value of the
// wrong type or range.

struct Bool {
    bool read(const QCBORItem& item, uint8_t* out) const {
        if (item.uDataType != QCBOR_TYPE_TRUE && item.uDataType != QCBOR_TYPE_FALSE) return false;
        *out = item.uDataType == QCBOR_TYPE_TRUE ? 1 : 0;
        return true;
    }
};

// Any integer, as its 64 bits.
struct Uint64 {
    bool read(const QCBORItem& item, uint64_t* out) const {
        if (item.uDataType != QCBOR_TYPE_INT64 && item.uDataType != QCBOR_TYPE_UINT64) return false;
        *out = item.val.uint64;
        return true;
    }
};

// Integers of at most 64 signed bits. One above the signed range fails either test: it has the
// other type, or is negative when taken as signed.
template <typename Integer>
struct InRange {
    bool read(const QCBORItem& item, Integer* out) const {
        using Limits = std::numeric_limits<Integer>;
        if (item.uDataType != QCBOR_TYPE_INT64) return false;
        const int64_t value = item.val.int64;
        if (value < int64_t{Limits::min()} || value > int64_t{Limits::max()}) return false;
        *out = static_cast<Integer>(value);
        return true;
    }
};

struct String {
    uint8_t type;

    bool read(const QCBORItem& item, keymaster_blob_t* out) const {
        if (item.uDataType != type) return false;
        *out = {static_cast<const uint8_t*>(item.val.string.ptr), item.val.string.len};
        return true;
    }
};

// Fetches the next item and stores its value in `out` if label and value are the wanted ones.
template <typename Label, typename Value, typename Out>
void get(CborReader* reader, Label label, Value value, Out* out) {
    if (reader->error != 0) return;
    QCBORItem item;
    if (!fetchNext(reader, &item)) return;
    reader->error = label.check(item);
    if (reader->error != 0) return;
    reader->error = value.read(item, out) ? 0 : kBadValue;
}

// Kept: half of the forms without a label report every failure as 1; messages hand the value on.
template <typename Value, typename Out>
void getOrUnexpected(CborReader* reader, Value value, Out* out) {
    if (reader->error != 0) return;
    QCBORItem item;
    reader->error = fetchNext(reader, &item) && value.read(item, out) ? 0 : kUnexpected;
}

// Fetches the next item, a container of the given type under the wanted label.
template <typename Label>
int enter(CborReader* reader, Label label, uint8_t type) {
    if (reader->error != 0) return 0;
    QCBORItem item;
    const bool found = fetchNext(reader, &item) && label.check(item) == 0 && item.uDataType == type;
    if (found) reader->item = item;
    reader->error = found ? 0 : kBadValue;
    return found ? 1 : 0;
}

int openArray(QCBOREncodeContext* encoder, int64_t label) {
    QCBOREncode_OpenArray_3(encoder, nullptr, static_cast<uint64_t>(label), CBOR_TAG_NONE, false);
    return 1;
}

int openMap(QCBOREncodeContext* encoder, int64_t label) {
    QCBOREncode_OpenMap_3(encoder, nullptr, static_cast<uint64_t>(label), CBOR_TAG_NONE, 0);
    return 1;
}

}  // namespace

int CR_ARRAY_ENTER(CborReader* reader) {
    return enter(reader, AnyLabel{}, QCBOR_TYPE_ARRAY);
}

int CR_MAP_ENTER(CborReader* reader) {
    return enter(reader, AnyLabel{}, QCBOR_TYPE_MAP);
}

int CR_ARRAY_LABEL_ENTER(CborReader* reader, int64_t label) {
    return enter(reader, IntegerLabel{static_cast<uint64_t>(label)}, QCBOR_TYPE_ARRAY);
}

int CR_MAP_LABEL_ENTER(CborReader* reader, int64_t label) {
    return enter(reader, IntegerLabel{static_cast<uint64_t>(label)}, QCBOR_TYPE_MAP);
}

void CRGetBool(CborReader* reader, uint8_t* out) {
    getOrUnexpected(reader, Bool{}, out);
}

void CRGetBoolFromMapWithUint64Label(CborReader* reader, uint64_t label, uint8_t* out) {
    get(reader, IntegerLabel{label}, Bool{}, out);
}

void CRGetBoolFromMapWithStringLabel(CborReader* reader, const char* label, uint8_t* out) {
    get(reader, TextLabel{label}, Bool{}, out);
}

void CRGetUint64(CborReader* reader, uint64_t* out) {
    getOrUnexpected(reader, Uint64{}, out);
}

void CRGetUint64FromMapWithUint64Label(CborReader* reader, uint64_t label, uint64_t* out) {
    get(reader, IntegerLabel{label}, Uint64{}, out);
}

void CRGetUint64FromMapWithStringLabel(CborReader* reader, const char* label, uint64_t* out) {
    get(reader, TextLabel{label}, Uint64{}, out);
}

void CRGetInt64(CborReader* reader, int64_t* out) {
    getOrUnexpected(reader, InRange<int64_t>{}, out);
}

void CRGetInt64FromMapWithUint64Label(CborReader* reader, uint64_t label, int64_t* out) {
    get(reader, IntegerLabel{label}, InRange<int64_t>{}, out);
}

void CRGetInt64FromMapWithStringLabel(CborReader* reader, const char* label, int64_t* out) {
    get(reader, TextLabel{label}, InRange<int64_t>{}, out);
}

void CRGetUint32(CborReader* reader, uint32_t* out) {
    get(reader, AnyLabel{}, InRange<uint32_t>{}, out);
}

void CRGetUint32FromMapWithUint64Label(CborReader* reader, uint64_t label, uint32_t* out) {
    get(reader, IntegerLabel{label}, InRange<uint32_t>{}, out);
}

void CRGetUint32FromMapWithStringLabel(CborReader* reader, const char* label, uint32_t* out) {
    get(reader, TextLabel{label}, InRange<uint32_t>{}, out);
}

void CRGetInt32(CborReader* reader, int32_t* out) {
    get(reader, AnyLabel{}, InRange<int32_t>{}, out);
}

void CRGetInt32FromMapWithUint64Label(CborReader* reader, uint64_t label, int32_t* out) {
    get(reader, IntegerLabel{label}, InRange<int32_t>{}, out);
}

void CRGetInt32FromMapWithStringLabel(CborReader* reader, const char* label, int32_t* out) {
    get(reader, TextLabel{label}, InRange<int32_t>{}, out);
}

void CRGetUint8(CborReader* reader, uint8_t* out) {
    get(reader, AnyLabel{}, InRange<uint8_t>{}, out);
}

void CRGetUint8FromMapWithUint64Label(CborReader* reader, uint64_t label, uint8_t* out) {
    get(reader, IntegerLabel{label}, InRange<uint8_t>{}, out);
}

void CRGetUint8FromMapWithStringLabel(CborReader* reader, const char* label, uint8_t* out) {
    get(reader, TextLabel{label}, InRange<uint8_t>{}, out);
}

void CRGetBytesOrString(CborReader* reader, uint8_t type, keymaster_blob_t* out) {
    getOrUnexpected(reader, String{type}, out);
}

void CRGetBytesOrStringFromMapWithUint64Label(CborReader* reader, uint8_t type, uint64_t label,
                                              keymaster_blob_t* out) {
    get(reader, IntegerLabel{label}, String{type}, out);
}

void CRGetBytesOrStringFromMapWithStringLabel(CborReader* reader, uint8_t type, const char* label,
                                              keymaster_blob_t* out) {
    get(reader, TextLabel{label}, String{type}, out);
}

int CW_ARRAY_ENTER(QCBOREncodeContext* encoder) {
    return openArray(encoder, QCBOR_NO_INT_LABEL);
}

int CW_MAP_ENTER(QCBOREncodeContext* encoder) {
    return openMap(encoder, QCBOR_NO_INT_LABEL);
}

int CW_ARRAY_LABEL_ENTER(QCBOREncodeContext* encoder, int64_t label) {
    return openArray(encoder, label);
}

int CW_MAP_LABEL_ENTER(QCBOREncodeContext* encoder, int64_t label) {
    return openMap(encoder, label);
}
