// The CBOR stand-in against libcbor's own reading of a whole item, and what it writes.
//
// Input: a byte that picks the direction, then a message, or a size and calls of the encoder.
// Beyond not crashing: the stand-in gives the items of libcbor's tree in their order, with the same
// values, up to the first that its limits do not take; what libcbor does not take it does not
// finish either; every message that it writes libcbor reads to the last byte, and it is as long as
// was counted without a buffer.

#include <cbor.h>
#include <qcbor.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "Property.h"

namespace {

using lumo::fuzz::exactCopy;
using lumo::fuzz::Input;
using lumo::fuzz::touch;
using Bytes = std::vector<uint8_t>;

// ---- Reading ----

// What the stand-in is to give for the items of a tree.
class Expectation {
  public:
    explicit Expectation(QCBORDecodeContext& decoder) : decoder_(decoder) {}

    // Whether the stand-in takes all of the item, which is an entry of an open container at
    // `level`; `label` is the one that it has in a map.
    bool takes(cbor_item_t* item, unsigned level, cbor_item_t* label) {
        if (label != nullptr && !isLabel(label)) return fails();
        cbor_item_t* value = item;
        while (cbor_isa_tag(value)) {
            // Tags give some items types of their own; here only their order is compared.
            value = cbor_move(cbor_tag_item(value));
            tagged_ = true;
        }
        if (!isSupported(value, level)) return fails();
        QCBORItem found;
        std::memset(&found, 0xFF, sizeof(found));
        const int error = QCBORDecode_GetNext(&decoder_, &found);
        if (error != QCBOR_SUCCESS) {
            // A tag may not fit its item.
            REQUIRE(tagged_ &&
                    (error == QCBOR_ERR_BAD_OPT_TAG || error == QCBOR_ERR_DATE_OVERFLOW));
            return false;
        }
        REQUIRE(found.uNestingLevel == level);
        if (label != nullptr) requireLabel(found, label);
        if (!tagged_) requireValue(found, value);
        tagged_ = false;
        if (cbor_isa_array(value)) return takesArray(value, level);
        if (cbor_isa_map(value)) return takesMap(value, level);
        return true;
    }

  private:
    bool takesArray(cbor_item_t* array, unsigned level) {
        for (size_t i = 0; i < cbor_array_size(array); ++i) {
            if (!takes(cbor_array_handle(array)[i], level + 1, nullptr)) return false;
        }
        return true;
    }

    bool takesMap(cbor_item_t* map, unsigned level) {
        for (size_t i = 0; i < cbor_map_size(map); ++i) {
            const cbor_pair& pair = cbor_map_handle(map)[i];
            if (!takes(pair.value, level + 1, pair.key)) return false;
        }
        return true;
    }

    // The stand-in reports the item.
    bool fails() {
        QCBORItem found;
        REQUIRE(QCBORDecode_GetNext(&decoder_, &found) != QCBOR_SUCCESS);
        return false;
    }

    static bool isNegativeTooLarge(cbor_item_t* item) {
        return cbor_isa_negint(item) && cbor_get_int(item) > INT64_MAX;
    }

    static bool isLabel(cbor_item_t* label) {
        if (cbor_isa_tag(label)) return false;  // compared no further
        if (cbor_isa_uint(label)) return true;
        if (cbor_isa_negint(label)) return !isNegativeTooLarge(label);
        return (cbor_isa_bytestring(label) && cbor_bytestring_is_definite(label)) ||
               (cbor_isa_string(label) && cbor_string_is_definite(label));
    }

    static bool isSupported(cbor_item_t* item, unsigned level) {
        if (isNegativeTooLarge(item)) return false;
        if (cbor_isa_bytestring(item)) return cbor_bytestring_is_definite(item);
        if (cbor_isa_string(item)) return cbor_string_is_definite(item);
        const bool array = cbor_isa_array(item);
        if (!array && !cbor_isa_map(item)) return true;
        const size_t count = array ? cbor_array_size(item) : cbor_map_size(item);
        const bool definite = array ? cbor_array_is_definite(item) : cbor_map_is_definite(item);
        return definite && count <= QCBOR_MAX_ITEMS_IN_ARRAY &&
               (count == 0 || level < QCBOR_MAX_ARRAY_NESTING);
    }

    static void requireString(UsefulBufC found, const uint8_t* bytes, size_t size) {
        REQUIRE(found.len == size);
        REQUIRE(size == 0 || std::memcmp(found.ptr, bytes, size) == 0);
    }

    static void requireLabel(const QCBORItem& found, cbor_item_t* label) {
        if (cbor_isa_uint(label)) {
            REQUIRE(found.label.uint64 == cbor_get_int(label));
        } else if (cbor_isa_negint(label)) {
            REQUIRE(found.label.uint64 == ~cbor_get_int(label));
        } else if (cbor_isa_bytestring(label)) {
            requireString(found.label.string, cbor_bytestring_handle(label),
                          cbor_bytestring_length(label));
        } else {
            requireString(found.label.string, cbor_string_handle(label), cbor_string_length(label));
        }
    }

    static void requireFloat(const QCBORItem& found, cbor_item_t* item) {
        REQUIRE(found.uDataType == QCBOR_TYPE_DOUBLE);
        const double expected = cbor_float_get_float(item);
        REQUIRE(found.val.dfnum == expected ||
                (std::isnan(found.val.dfnum) && std::isnan(expected)));
    }

    static void requireControl(const QCBORItem& found, cbor_item_t* item) {
        if (cbor_is_bool(item)) {
            REQUIRE(found.uDataType == (cbor_get_bool(item) ? QCBOR_TYPE_TRUE : QCBOR_TYPE_FALSE));
        } else if (cbor_is_null(item)) {
            REQUIRE(found.uDataType == QCBOR_TYPE_NULL);
        } else {
            REQUIRE(cbor_is_undef(item) && found.uDataType == QCBOR_TYPE_UNDEF);
        }
    }

    static void requireValue(const QCBORItem& found, cbor_item_t* item) {
        switch (cbor_typeof(item)) {
            case CBOR_TYPE_UINT:
                REQUIRE(found.uDataType ==
                        (cbor_get_int(item) > INT64_MAX ? QCBOR_TYPE_UINT64 : QCBOR_TYPE_INT64));
                REQUIRE(found.val.uint64 == cbor_get_int(item));
                break;
            case CBOR_TYPE_NEGINT:
                REQUIRE(found.uDataType == QCBOR_TYPE_INT64);
                REQUIRE(found.val.uint64 == ~cbor_get_int(item));
                break;
            case CBOR_TYPE_BYTESTRING:
                REQUIRE(found.uDataType == QCBOR_TYPE_BYTE_STRING);
                requireString(found.val.string, cbor_bytestring_handle(item),
                              cbor_bytestring_length(item));
                break;
            case CBOR_TYPE_STRING:
                REQUIRE(found.uDataType == QCBOR_TYPE_TEXT_STRING);
                requireString(found.val.string, cbor_string_handle(item), cbor_string_length(item));
                break;
            case CBOR_TYPE_ARRAY:
                REQUIRE(found.uDataType == QCBOR_TYPE_ARRAY &&
                        found.val.uCount == cbor_array_size(item));
                break;
            case CBOR_TYPE_MAP:
                REQUIRE(found.uDataType == QCBOR_TYPE_MAP &&
                        found.val.uCount == cbor_map_size(item));
                break;
            case CBOR_TYPE_FLOAT_CTRL:
                if (cbor_float_get_width(item) == CBOR_FLOAT_0) {
                    requireControl(found, item);
                } else {
                    requireFloat(found, item);
                }
                break;
            default:
                BROKEN("a tag has been taken off");
        }
    }

    QCBORDecodeContext& decoder_;
    bool tagged_ = false;
};

// Reads to the end or the first error, as a caller would; everything handed out can be read.
int readAll(const uint8_t* bytes, size_t size, int8_t mode, size_t* items) {
    QCBORDecodeContext decoder;
    QCBORDecode_Init(&decoder, {bytes, size}, mode);
    int error = QCBOR_SUCCESS;
    for (*items = 0; error == QCBOR_SUCCESS; ++*items) {
        QCBORItem item;
        const size_t before = decoder.uPosition;
        error = QCBORDecode_GetNext(&decoder, &item);
        REQUIRE(decoder.uPosition >= before && decoder.uPosition <= size);
        if (error != QCBOR_SUCCESS) break;
        REQUIRE(decoder.uPosition > before && decoder.uLevel <= QCBOR_MAX_ARRAY_NESTING);
        switch (item.uDataType) {
            case QCBOR_TYPE_BYTE_STRING:
            case QCBOR_TYPE_TEXT_STRING:
            case QCBOR_TYPE_POSBIGNUM:
            case QCBOR_TYPE_NEGBIGNUM:
            case QCBOR_TYPE_DATE_STRING:
                touch(item.val.string.ptr, item.val.string.len);
                break;
            default:
                break;
        }
    }
    return error;
}

bool hasTaggedLabel(cbor_item_t* item) {
    if (cbor_isa_tag(item)) return hasTaggedLabel(cbor_move(cbor_tag_item(item)));
    if (cbor_isa_array(item)) {
        for (size_t i = 0; i < cbor_array_size(item); ++i) {
            if (hasTaggedLabel(cbor_array_handle(item)[i])) return true;
        }
    }
    if (!cbor_isa_map(item)) return false;
    for (size_t i = 0; i < cbor_map_size(item); ++i) {
        const cbor_pair& pair = cbor_map_handle(item)[i];
        if (cbor_isa_tag(pair.key) || hasTaggedLabel(pair.key) || hasTaggedLabel(pair.value)) {
            return true;
        }
    }
    return false;
}

void decode(Input& input) {
    const Bytes message = input.take<Bytes>(input.size());
    const auto exact = exactCopy(message);
    for (const int mode : {QCBOR_DECODE_MODE_NORMAL, QCBOR_DECODE_MODE_MAP_STRINGS_ONLY,
                           QCBOR_DECODE_MODE_MAP_AS_ARRAY}) {
        size_t items = 0;
        const int error = readAll(exact.get(), message.size(), static_cast<int8_t>(mode), &items);
        REQUIRE(error > QCBOR_SUCCESS && error <= QCBOR_ERR_EXTRA_BYTES);
    }
    cbor_load_result result;
    cbor_item_t* tree = cbor_load(exact.get(), message.size(), &result);
    if (tree == nullptr) return;
    if (!hasTaggedLabel(tree)) {
        QCBORDecodeContext decoder;
        QCBORDecode_Init(&decoder, {exact.get(), message.size()}, QCBOR_DECODE_MODE_NORMAL);
        if (Expectation(decoder).takes(tree, 0, nullptr)) {
            REQUIRE(decoder.uPosition == result.read && decoder.uLevel == 0);
            const int end = QCBORDecode_Finish(&decoder);
            REQUIRE(end == (result.read == message.size() ? QCBOR_SUCCESS : QCBOR_ERR_EXTRA_BYTES));
        }
    }
    cbor_decref(&tree);
}

// ---- Writing ----

// Makes the calls that the bytes say; whether maps hold pairs is the caller's business, so labels
// come by themselves.
void encodeCalls(Bytes calls, QCBOREncodeContext* encoder) {
    Input input(calls.data(), calls.size());
    while (input.size() != 0) {
        const uint8_t call = input.byte();
        const uint64_t tag = (call & 0x80) != 0 ? input.number(2) : CBOR_TAG_NONE;
        const int64_t label = encoder->uLevel != 0 && (call & 0x40) != 0
                                  ? static_cast<int64_t>(input.number(2)) - 0x8000
                                  : QCBOR_NO_INT_LABEL;
        const char* text = (call & 0x20) != 0 ? "label" : nullptr;
        switch ((call & 0x1F) % 9) {
            case 0:
                QCBOREncode_AddUInt64_3(encoder, text, label, tag, input.number(8));
                break;
            case 1:
                QCBOREncode_AddInt64_3(encoder, text, label, tag,
                                       static_cast<int64_t>(input.number(8)));
                break;
            case 2: {
                const Bytes bytes = input.take<Bytes>(input.byte());
                QCBOREncode_AddBytes_3(encoder, text, label, tag, {bytes.data(), bytes.size()});
                break;
            }
            case 3: {
                const Bytes bytes(input.byte(), 'x');
                QCBOREncode_AddText_3(encoder, text, label, tag, {bytes.data(), bytes.size()});
                break;
            }
            case 4:
                QCBOREncode_AddSimple_3(encoder, text, label, tag, input.byte());
                break;
            case 5:
                QCBOREncode_OpenMap_3(encoder, text, static_cast<uint64_t>(label), tag,
                                      input.byte() & 1);
                break;
            case 6:
                QCBOREncode_OpenArray_3(encoder, text, static_cast<uint64_t>(label), tag,
                                        (input.byte() & 1) != 0);
                break;
            case 7:
                QCBOREncode_CloseArray(encoder);
                break;
            default: {
                // Bytes without any, and more than any buffer holds.
                const size_t length = (input.byte() & 1) != 0 ? SIZE_MAX : 0;
                QCBOREncode_AddBytes_3(encoder, text, label, tag, {nullptr, length});
            }
        }
    }
}

void encode(Input& input) {
    const size_t room = input.number(2) % 4096;
    const Bytes calls = input.take<Bytes>(input.size());
    const auto buffer = std::make_unique<uint8_t[]>(room);
    QCBOREncodeContext encoder;
    QCBOREncode_Init(&encoder, buffer.get(), room);
    encodeCalls(calls, &encoder);
    size_t length = 0;
    const int error = QCBOREncode_Finish(&encoder, &length);

    QCBOREncodeContext counter;
    QCBOREncode_Init(&counter, nullptr, room);
    encodeCalls(calls, &counter);
    size_t counted = 0;
    REQUIRE(QCBOREncode_Finish(&counter, &counted) == error && counted == length);
    if (error != QCBOR_SUCCESS) {
        REQUIRE(error > QCBOR_SUCCESS && error <= QCBOR_ERR_EXTRA_BYTES);
        return;
    }
    REQUIRE(length <= room);
    // A tag without an item behind it is the caller's to avoid, as is a map with half a pair.
    size_t read = 0;
    while (read < length) {
        const cbor_decoder_result head =
            cbor_stream_decode(buffer.get() + read, length - read, &cbor_empty_callbacks, nullptr);
        REQUIRE(head.status == CBOR_DECODER_FINISHED && head.read != 0);
        read += head.read;
    }
    REQUIRE(read == length);
}

void encodeTooMuch(Input& input) {
    uint8_t byte = 0;
    QCBOREncodeContext encoder;
    QCBOREncode_Init(&encoder, &byte, static_cast<size_t>(input.number(8)) | size_t{1} << 31 << 1);
    size_t length = 0;
    REQUIRE(sizeof(size_t) == 4 ||
            QCBOREncode_Finish(&encoder, &length) == QCBOR_ERR_BUFFER_TOO_LARGE);
}

// One container with more entries than a count holds, or just as many.
void encodeLong(Input& input) {
    const size_t count = 65530 + input.byte() % 8;
    const bool map = (input.byte() & 1) != 0;
    const auto buffer = std::make_unique<uint8_t[]>(200000);
    QCBOREncodeContext encoder;
    QCBOREncode_Init(&encoder, buffer.get(), 200000);
    if (map) {
        QCBOREncode_OpenMap(&encoder);
        for (size_t i = 0; i < count / 2; ++i) QCBOREncode_AddInt64ToMapN(&encoder, 1, 1);
    } else {
        QCBOREncode_OpenArray(&encoder);
        for (size_t i = 0; i < count; ++i) QCBOREncode_AddInt64(&encoder, 1);
    }
    QCBOREncode_CloseArray(&encoder);
    size_t length = 0;
    const int error = QCBOREncode_Finish(&encoder, &length);
    REQUIRE(error == (count / (map ? 2 : 1) * (map ? 2 : 1) <= 65534 ? QCBOR_SUCCESS
                                                                     : QCBOR_ERR_ARRAY_TOO_LONG));
    if (error != QCBOR_SUCCESS) return;
    cbor_load_result result;
    cbor_item_t* tree = cbor_load(buffer.get(), length, &result);
    REQUIRE(tree != nullptr && result.read == length);
    cbor_decref(&tree);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr void (*kWorks[])(Input&) = {decode, encode, encodeTooMuch, encodeLong};
    Input input(data, size);
    const uint8_t pick = input.byte();
    kWorks[pick % std::size(kWorks)](input);
    return 0;
}
