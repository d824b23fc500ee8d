// The exported CBOR helpers on a hostile message.
//
// Input: a byte with the number of calls, each a byte that picks the helper and one that picks the
// label, then the message. Beyond not crashing: an output is written on success alone, and a string
// lies within the message; the error is one that the helper has, sticks, and no call after it moves
// the decoder; a container that was entered is of the kind and under the label asked for.

#include <cstring>
#include <vector>

#include "CborHelpers.h"
#include "Property.h"

namespace {

using lumo::fuzz::exactCopy;
using lumo::fuzz::Input;
using lumo::fuzz::touch;
using Bytes = std::vector<uint8_t>;

constexpr int64_t kLabels[] = {0, 1, 22, 23, 35, -1, -24, INT64_MAX, INT64_MIN, 0x30000002};
const char* const kTextLabels[] = {"", "a", "key", "labels"};

struct Call {
    CborReader& reader;
    const Bytes& message;
    const uint8_t* start;
    uint8_t label;

    int64_t number() const { return kLabels[label % std::size(kLabels)]; }
    uint64_t bits() const { return static_cast<uint64_t>(number()); }
    const char* text() const { return kTextLabels[label % std::size(kTextLabels)]; }

    // Whether a getter that wrote, or did not, kept its promise.
    template <typename Value, typename Get>
    void get(Get getter) const {
        Value low;
        Value high;
        std::memset(&low, 0x00, sizeof(low));
        std::memset(&high, 0xFF, sizeof(high));
        const CborReader before = reader;
        const QCBORDecodeContext place = *reader.decoder;
        getter(&low);
        const int32_t error = reader.error;
        const QCBORDecodeContext after = *reader.decoder;
        // The same once more over another value: what is written does not depend on it.
        reader = before;
        *reader.decoder = place;
        getter(&high);
        REQUIRE(reader.error == error);
        REQUIRE(reader.decoder->uPosition == after.uPosition);
        if (before.error != 0) {
            REQUIRE(error == before.error && after.uPosition == place.uPosition);
        }
        const bool same = std::memcmp(&low, &high, sizeof(low)) == 0;
        REQUIRE(same == (error == 0));
    }

    template <typename Get>
    void getString(Get getter) const {
        keymaster_blob_t blob = {start, SIZE_MAX};
        getter(&blob);
        if (reader.error != 0) {
            REQUIRE(blob.data == start && blob.data_length == SIZE_MAX);
            return;
        }
        REQUIRE(blob.data_length <= message.size());
        REQUIRE(blob.data >= start && blob.data + blob.data_length <= start + message.size());
        touch(blob.data, blob.data_length);
    }

    // A failed one leaves the item as it was.
    template <typename Enter>
    void enter(Enter entering, uint8_t type) const {
        const bool failed_before = reader.error != 0;
        const QCBORItem before = reader.item;
        const int entered = entering();
        REQUIRE(entered == (reader.error == 0 ? 1 : 0));
        if (entered == 1) {
            REQUIRE(!failed_before && reader.item.uDataType == type);
        } else {
            REQUIRE(std::memcmp(&before, &reader.item, sizeof(before)) == 0);
            REQUIRE(failed_before || reader.error == -1);
        }
    }
};

constexpr void (*kCalls[])(const Call&) = {
    [](const Call& c) { c.enter([&] { return CR_MAP_ENTER(&c.reader); }, QCBOR_TYPE_MAP); },
    [](const Call& c) { c.enter([&] { return CR_ARRAY_ENTER(&c.reader); }, QCBOR_TYPE_ARRAY); },
    [](const Call& c) {
        c.enter([&] { return CR_MAP_LABEL_ENTER(&c.reader, c.number()); }, QCBOR_TYPE_MAP);
    },
    [](const Call& c) {
        c.enter([&] { return CR_ARRAY_LABEL_ENTER(&c.reader, c.number()); }, QCBOR_TYPE_ARRAY);
    },
    [](const Call& c) { c.get<uint8_t>([&](auto* out) { CRGetBool(&c.reader, out); }); },
    [](const Call& c) {
        c.get<uint8_t>(
            [&](auto* out) { CRGetBoolFromMapWithUint64Label(&c.reader, c.bits(), out); });
    },
    [](const Call& c) {
        c.get<uint8_t>(
            [&](auto* out) { CRGetBoolFromMapWithStringLabel(&c.reader, c.text(), out); });
    },
    [](const Call& c) { c.get<uint64_t>([&](auto* out) { CRGetUint64(&c.reader, out); }); },
    [](const Call& c) {
        c.get<uint64_t>(
            [&](auto* out) { CRGetUint64FromMapWithUint64Label(&c.reader, c.bits(), out); });
    },
    [](const Call& c) {
        c.get<uint64_t>(
            [&](auto* out) { CRGetUint64FromMapWithStringLabel(&c.reader, c.text(), out); });
    },
    [](const Call& c) { c.get<int64_t>([&](auto* out) { CRGetInt64(&c.reader, out); }); },
    [](const Call& c) {
        c.get<int64_t>(
            [&](auto* out) { CRGetInt64FromMapWithUint64Label(&c.reader, c.bits(), out); });
    },
    [](const Call& c) {
        c.get<int64_t>(
            [&](auto* out) { CRGetInt64FromMapWithStringLabel(&c.reader, c.text(), out); });
    },
    [](const Call& c) { c.get<uint32_t>([&](auto* out) { CRGetUint32(&c.reader, out); }); },
    [](const Call& c) {
        c.get<uint32_t>(
            [&](auto* out) { CRGetUint32FromMapWithUint64Label(&c.reader, c.bits(), out); });
    },
    [](const Call& c) {
        c.get<uint32_t>(
            [&](auto* out) { CRGetUint32FromMapWithStringLabel(&c.reader, c.text(), out); });
    },
    [](const Call& c) { c.get<int32_t>([&](auto* out) { CRGetInt32(&c.reader, out); }); },
    [](const Call& c) {
        c.get<int32_t>(
            [&](auto* out) { CRGetInt32FromMapWithUint64Label(&c.reader, c.bits(), out); });
    },
    [](const Call& c) {
        c.get<int32_t>(
            [&](auto* out) { CRGetInt32FromMapWithStringLabel(&c.reader, c.text(), out); });
    },
    [](const Call& c) { c.get<uint8_t>([&](auto* out) { CRGetUint8(&c.reader, out); }); },
    [](const Call& c) {
        c.get<uint8_t>(
            [&](auto* out) { CRGetUint8FromMapWithUint64Label(&c.reader, c.bits(), out); });
    },
    [](const Call& c) {
        c.get<uint8_t>(
            [&](auto* out) { CRGetUint8FromMapWithStringLabel(&c.reader, c.text(), out); });
    },
    [](const Call& c) {
        c.getString([&](auto* out) { CRGetBytesOrString(&c.reader, QCBOR_TYPE_BYTE_STRING, out); });
    },
    [](const Call& c) {
        c.getString([&](auto* out) { CRGetBytesOrString(&c.reader, QCBOR_TYPE_TEXT_STRING, out); });
    },
    [](const Call& c) {
        c.getString([&](auto* out) {
            CRGetBytesOrStringFromMapWithUint64Label(&c.reader, QCBOR_TYPE_BYTE_STRING, c.bits(),
                                                     out);
        });
    },
    [](const Call& c) {
        c.getString([&](auto* out) {
            CRGetBytesOrStringFromMapWithStringLabel(&c.reader, QCBOR_TYPE_TEXT_STRING, c.text(),
                                                     out);
        });
    },
};

// The writing forms, closed again: what they open is what a reader enters.
void writeAndEnter(int64_t label) {
    uint8_t buffer[64];
    QCBOREncodeContext encoder;
    QCBOREncode_Init(&encoder, buffer, sizeof(buffer));
    REQUIRE(CW_MAP_ENTER(&encoder) == 1);
    REQUIRE(CW_ARRAY_LABEL_ENTER(&encoder, label) == 1);
    REQUIRE(CW_ARRAY_ENTER(&encoder) == 1);
    for (int i = 0; i < 2; ++i) QCBOREncode_CloseArray(&encoder);
    REQUIRE(CW_MAP_LABEL_ENTER(&encoder, label) == 1);
    for (int i = 0; i < 2; ++i) QCBOREncode_CloseArray(&encoder);
    size_t length = 0;
    const bool has_label = label != QCBOR_NO_INT_LABEL;
    REQUIRE(QCBOREncode_Finish(&encoder, &length) == QCBOR_SUCCESS);

    QCBORDecodeContext decoder;
    QCBORDecode_Init(&decoder, {buffer, length}, QCBOR_DECODE_MODE_NORMAL);
    CborReader reader;
    std::memset(&reader, 0xFF, sizeof(reader));
    reader.decoder = &decoder;
    reader.error = 0;
    if (!has_label) return;
    REQUIRE(CR_MAP_ENTER(&reader) == 1);
    REQUIRE(CR_ARRAY_LABEL_ENTER(&reader, label) == 1);
    REQUIRE(CR_ARRAY_ENTER(&reader) == 1);
    REQUIRE(CR_MAP_LABEL_ENTER(&reader, label) == 1);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input input(data, size);
    const size_t count = input.byte() % 16;
    const Bytes calls = input.take<Bytes>(2 * count);
    const Bytes message = input.take<Bytes>(input.size());
    const auto exact = exactCopy(message);

    QCBORDecodeContext decoder;
    QCBORDecode_Init(&decoder, {exact.get(), message.size()}, QCBOR_DECODE_MODE_NORMAL);
    CborReader reader;
    std::memset(&reader, 0xFF, sizeof(reader));
    reader.decoder = &decoder;
    reader.error = 0;
    for (size_t i = 0; i + 1 < calls.size(); i += 2) {
        const int32_t error = reader.error;
        kCalls[calls[i] % std::size(kCalls)]({reader, message, exact.get(), calls[i + 1]});
        if (error != 0) REQUIRE(reader.error == error);
    }
    writeAndEnter(kLabels[size % std::size(kLabels)]);
    return 0;
}
