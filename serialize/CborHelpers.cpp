#include "CborHelpers.h"

#include <limits>

namespace {

constexpr int32_t kUnexpected = 1;
constexpr int32_t kBadValue = -1;

// QCBOR leaves the fields alone that do not apply, such as the label outside a map. All ones there
// are no label's type and no value's type.
QCBORItem blankItem() {
    QCBORItem item;
    std::memset(&item, 0xFF, sizeof(item));
    return item;
}

// Label checks. Each returns 0 or the error for an item with another label.

int32_t anyLabel(const QCBORItem&) {
    return 0;
}

auto integerLabel(uint64_t wanted) {
    return [wanted](const QCBORItem& item) {
        const bool integer =
            item.uLabelType == QCBOR_TYPE_INT64 || item.uLabelType == QCBOR_TYPE_UINT64;
        return integer && item.label.uint64 == wanted ? 0 : kUnexpected;
    };
}

auto textLabel(const char* wanted) {
    return [wanted](const QCBORItem& item) -> int32_t {
        if (item.uLabelType != QCBOR_TYPE_TEXT_STRING) return kUnexpected;
        const size_t length = std::strlen(wanted);
        if (item.label.string.len != length) return kUnexpected;
        return std::memcmp(item.label.string.ptr, wanted, length);
    };
}

// Value readers. Each returns false, with `out` untouched, for a value of the wrong type or range.

bool readBool(const QCBORItem& item, uint8_t* out) {
    if (item.uDataType != QCBOR_TYPE_TRUE && item.uDataType != QCBOR_TYPE_FALSE) return false;
    *out = item.uDataType == QCBOR_TYPE_TRUE ? 1 : 0;
    return true;
}

bool readUint64(const QCBORItem& item, uint64_t* out) {
    if (item.uDataType != QCBOR_TYPE_INT64 && item.uDataType != QCBOR_TYPE_UINT64) return false;
    *out = item.val.uint64;
    return true;
}

// Integers of at most 64 signed bits. One above the signed range fails either test: it has the
// other type, or is negative when taken as signed.
template <typename Integer>
bool readRange(const QCBORItem& item, Integer* out) {
    using Limits = std::numeric_limits<Integer>;
    if (item.uDataType != QCBOR_TYPE_INT64) return false;
    const int64_t value = item.val.int64;
    if (value < int64_t{Limits::min()} || value > int64_t{Limits::max()}) return false;
    *out = static_cast<Integer>(value);
    return true;
}

auto readString(uint8_t type) {
    return [type](const QCBORItem& item, keymaster_blob_t* out) {
        if (item.uDataType != type) return false;
        *out = {static_cast<const uint8_t*>(item.val.string.ptr), item.val.string.len};
        return true;
    };
}

// Fetches one item and stores it in `out` if its label and its value are the wanted ones. Returns
// the error.
template <typename LabelCheck, typename Read, typename Out>
int32_t fetch(CborReader* reader, LabelCheck labelError, Read read, Out* out) {
    QCBORItem item = blankItem();
    const int result = QCBORDecode_GetNext(reader->decoder, &item);
    if (result != QCBOR_SUCCESS) return result;
    const int32_t error = labelError(item);
    if (error != 0) return error;
    return read(item, out) ? 0 : kBadValue;
}

template <typename LabelCheck, typename Read, typename Out>
void get(CborReader* reader, LabelCheck labelError, Read read, Out* out) {
    if (reader->error == 0) reader->error = fetch(reader, labelError, read, out);
}

// Kept: half of the forms without a label tell every failure as 1; messages hand the value on.
template <typename Read, typename Out>
void getOrUnexpected(CborReader* reader, Read read, Out* out) {
    if (reader->error != 0) return;
    reader->error = fetch(reader, anyLabel, read, out) == 0 ? 0 : kUnexpected;
}

template <typename LabelCheck>
int enter(CborReader* reader, uint8_t type, LabelCheck labelError) {
    if (reader->error != 0) return 0;
    const auto keep = [type](const QCBORItem& item, QCBORItem* out) {
        if (item.uDataType != type) return false;
        *out = item;
        return true;
    };
    reader->error = fetch(reader, labelError, keep, &reader->item) == 0 ? 0 : kBadValue;
    return reader->error == 0 ? 1 : 0;
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
    return enter(reader, QCBOR_TYPE_ARRAY, anyLabel);
}

int CR_MAP_ENTER(CborReader* reader) {
    return enter(reader, QCBOR_TYPE_MAP, anyLabel);
}

int CR_ARRAY_LABEL_ENTER(CborReader* reader, int64_t label) {
    return enter(reader, QCBOR_TYPE_ARRAY, integerLabel(static_cast<uint64_t>(label)));
}

int CR_MAP_LABEL_ENTER(CborReader* reader, int64_t label) {
    return enter(reader, QCBOR_TYPE_MAP, integerLabel(static_cast<uint64_t>(label)));
}

void CRGetBool(CborReader* reader, uint8_t* out) {
    getOrUnexpected(reader, readBool, out);
}

void CRGetBoolFromMapWithUint64Label(CborReader* reader, uint64_t label, uint8_t* out) {
    get(reader, integerLabel(label), readBool, out);
}

void CRGetBoolFromMapWithStringLabel(CborReader* reader, const char* label, uint8_t* out) {
    get(reader, textLabel(label), readBool, out);
}

void CRGetUint64(CborReader* reader, uint64_t* out) {
    getOrUnexpected(reader, readUint64, out);
}

void CRGetUint64FromMapWithUint64Label(CborReader* reader, uint64_t label, uint64_t* out) {
    get(reader, integerLabel(label), readUint64, out);
}

void CRGetUint64FromMapWithStringLabel(CborReader* reader, const char* label, uint64_t* out) {
    get(reader, textLabel(label), readUint64, out);
}

void CRGetInt64(CborReader* reader, int64_t* out) {
    getOrUnexpected(reader, readRange<int64_t>, out);
}

void CRGetInt64FromMapWithUint64Label(CborReader* reader, uint64_t label, int64_t* out) {
    get(reader, integerLabel(label), readRange<int64_t>, out);
}

void CRGetInt64FromMapWithStringLabel(CborReader* reader, const char* label, int64_t* out) {
    get(reader, textLabel(label), readRange<int64_t>, out);
}

void CRGetUint32(CborReader* reader, uint32_t* out) {
    get(reader, anyLabel, readRange<uint32_t>, out);
}

void CRGetUint32FromMapWithUint64Label(CborReader* reader, uint64_t label, uint32_t* out) {
    get(reader, integerLabel(label), readRange<uint32_t>, out);
}

void CRGetUint32FromMapWithStringLabel(CborReader* reader, const char* label, uint32_t* out) {
    get(reader, textLabel(label), readRange<uint32_t>, out);
}

void CRGetInt32(CborReader* reader, int32_t* out) {
    get(reader, anyLabel, readRange<int32_t>, out);
}

void CRGetInt32FromMapWithUint64Label(CborReader* reader, uint64_t label, int32_t* out) {
    get(reader, integerLabel(label), readRange<int32_t>, out);
}

void CRGetInt32FromMapWithStringLabel(CborReader* reader, const char* label, int32_t* out) {
    get(reader, textLabel(label), readRange<int32_t>, out);
}

void CRGetUint8(CborReader* reader, uint8_t* out) {
    get(reader, anyLabel, readRange<uint8_t>, out);
}

void CRGetUint8FromMapWithUint64Label(CborReader* reader, uint64_t label, uint8_t* out) {
    get(reader, integerLabel(label), readRange<uint8_t>, out);
}

void CRGetUint8FromMapWithStringLabel(CborReader* reader, const char* label, uint8_t* out) {
    get(reader, textLabel(label), readRange<uint8_t>, out);
}

void CRGetBytesOrString(CborReader* reader, uint8_t type, keymaster_blob_t* out) {
    getOrUnexpected(reader, readString(type), out);
}

void CRGetBytesOrStringFromMapWithUint64Label(CborReader* reader, uint8_t type, uint64_t label,
                                              keymaster_blob_t* out) {
    get(reader, integerLabel(label), readString(type), out);
}

void CRGetBytesOrStringFromMapWithStringLabel(CborReader* reader, uint8_t type, const char* label,
                                              keymaster_blob_t* out) {
    get(reader, textLabel(label), readString(type), out);
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
