#include <gtest/gtest.h>

#include <functional>
#include <sstream>
#include <type_traits>

#include "CborHelpers.h"
#include "ScriptedTransport.h"

namespace {

using lumo::test::Bytes;
using lumo::test::hex;

struct Message {
    explicit Message(Bytes content) : bytes(std::move(content)) {
        QCBORDecode_Init(&decoder, {bytes.data(), bytes.size()}, QCBOR_DECODE_MODE_NORMAL);
    }
    Message(const Message&) = delete;
    Bytes bytes;
    QCBORDecodeContext decoder = {};
    CborReader reader = {&decoder, {}, 0};
};

// A getter of any type, its output carried as 64 bits.
using Getter = std::function<void(CborReader*, uint64_t*)>;

template <typename Out, typename Function, typename... Before>
Getter getter(Function* function, Before... before) {
    return [=](CborReader* reader, uint64_t* out) {
        if constexpr (std::is_same_v<Out, keymaster_blob_t>) {
            keymaster_blob_t blob = {nullptr, *out};
            function(reader, before..., &blob);
            *out = blob.data_length;
        } else {
            Out value = static_cast<Out>(*out);
            function(reader, before..., &value);
            *out = static_cast<uint64_t>(value);
        }
    };
}

constexpr uint64_t kLabel = 5;
constexpr uint8_t kByteString = 6;

struct Family {
    const char* name;
    bool own_code;  // the plain form tells the decoder's code and -1; else 1 for all
    Getter plain, by_number, by_text;
    const char* items;  // good ones with the value, and bad ones
};

#define FORMS(Out, Name)                                                  \
    getter<Out>(Name), getter<Out>(Name##FromMapWithUint64Label, kLabel), \
        getter<Out>(Name##FromMapWithStringLabel, "ab")

const Getter kBytes = getter<keymaster_blob_t>(CRGetBytesOrString, kByteString);
const Getter kBytesByNumber =
    getter<keymaster_blob_t>(CRGetBytesOrStringFromMapWithUint64Label, kByteString, kLabel);
const Getter kBytesByText =
    getter<keymaster_blob_t>(CRGetBytesOrStringFromMapWithStringLabel, kByteString, "ab");

const Family kFamilies[] = {
    {"Bool", false, FORMS(uint8_t, CRGetBool), "f5=1 f4=0 01 f6"},
    {"Uint64", false, FORMS(uint64_t, CRGetUint64),
     "20=ffffffffffffffff 1b8000000000000001=8000000000000001 f5 40"},
    {"Int64", false, FORMS(int64_t, CRGetInt64), "20=ffffffffffffffff 1b8000000000000000 f5"},
    {"Uint32", true, FORMS(uint32_t, CRGetUint32),
     "1affffffff=ffffffff 00=0 20 1b0000000100000000 1bffffffffffffffff"},
    {"Int32", true, FORMS(int32_t, CRGetInt32),
     "1a7fffffff=7fffffff 3a7fffffff=ffffffff80000000 1a80000000 3a80000000"},
    {"Uint8", true, FORMS(uint8_t, CRGetUint8), "18ff=ff 190100 20 1bffffffffffffffff f4"},
    {"BytesOrString", false, kBytes, kBytesByNumber, kBytesByText, "420102=2 40=0 626162 02"},
};

constexpr uint64_t kUntouched = 0x55;
constexpr int32_t kHitEnd = 6;

// A failure leaves the output untouched, and nothing is read after it.
void expect(const Getter& get, const std::string& message, bool in_map, int32_t error,
            uint64_t value = kUntouched) {
    SCOPED_TRACE(message);
    Message m(hex(message));
    EXPECT_TRUE(!in_map || CR_MAP_ENTER(&m.reader) == 1);
    uint64_t out = kUntouched;
    get(&m.reader, &out);
    EXPECT_EQ(m.reader.error, error);
    EXPECT_EQ(out, value);
    if (error == 0) return;
    EXPECT_EQ(CR_MAP_ENTER(&m.reader), 0);
    get(&m.reader, &out);
    EXPECT_EQ(m.reader.error, error);
    EXPECT_EQ(out, value);
}

TEST(CborGetters, TakeGoodValuesAndTellFailuresEachInTheirWay) {
    for (const Family& f : kFamilies) {
        const struct {
            const Getter& get;
            std::string head;
            int32_t bad, end;
        } forms[] = {
            {f.plain, "", f.own_code ? -1 : 1, f.own_code ? kHitEnd : 1},
            {f.by_number, "a105", -1, kHitEnd},
            {f.by_text, "a1626162", -1, kHitEnd},
        };
        for (const auto& form : forms) {
            SCOPED_TRACE(f.name);
            const bool in_map = !form.head.empty();
            std::istringstream items(f.items);
            for (std::string item; items >> item;) {
                const size_t equals = item.find('=');
                const std::string message = form.head + item.substr(0, equals);
                if (equals == std::string::npos) {
                    expect(form.get, message, in_map, form.bad);
                } else {
                    const uint64_t value = std::stoull(item.substr(equals + 1), nullptr, 16);
                    expect(form.get, message, in_map, 0, value);
                }
            }
            expect(form.get, form.head, in_map, form.end);
        }
    }
}

TEST(CborGetters, WantTheirOwnLabel) {
    const Family& flag = kFamilies[0];
    for (const char* message : {"a106f5", "a124f5", "a14105f5", "a16135f5"}) {
        expect(flag.by_number, message, true, 1);
    }
    for (const char* message : {"a105f5", "a16161f5", "a163616263f5"}) {
        expect(flag.by_text, message, true, 1);
    }
    expect(flag.by_text, "a1626163f5", true, std::memcmp("ac", "ab", 2));
    expect(flag.by_number, "f5", false, 1);  // no label at all
}

TEST(CborContainers, AreWrittenAndEntered) {
    uint8_t buffer[32];
    QCBOREncodeContext encoder;
    size_t length = 0;
    QCBOREncode_Init(&encoder, buffer, sizeof(buffer));
    EXPECT_EQ(CW_MAP_ENTER(&encoder), 1);
    EXPECT_EQ(CW_ARRAY_LABEL_ENTER(&encoder, 5), 1);
    EXPECT_EQ(CW_ARRAY_ENTER(&encoder), 1);
    for (int i = 0; i < 2; ++i) QCBOREncode_CloseArray(&encoder);
    EXPECT_EQ(CW_MAP_LABEL_ENTER(&encoder, -1000), 1);
    for (int i = 0; i < 2; ++i) QCBOREncode_CloseArray(&encoder);
    ASSERT_EQ(QCBOREncode_Finish(&encoder, &length), 0);
    EXPECT_EQ(Bytes(buffer, buffer + length), hex("a2 05 81 80 3903e7 a0"));

    Message m(hex("a2 05 81 80 3903e7 a0"));
    EXPECT_EQ(CR_MAP_ENTER(&m.reader), 1);
    EXPECT_EQ(m.reader.item.val.uCount, 2);
    EXPECT_EQ(CR_ARRAY_LABEL_ENTER(&m.reader, 5), 1);
    EXPECT_EQ(m.reader.item.uDataType, QCBOR_TYPE_ARRAY);
    EXPECT_EQ(CR_ARRAY_ENTER(&m.reader), 1);
    EXPECT_EQ(CR_MAP_LABEL_ENTER(&m.reader, -1000), 1);
    EXPECT_EQ(m.reader.error, 0);
}

TEST(CborReader, RefusesToEnterAnythingElse) {
    const struct {
        const char* message;
        std::function<int(CborReader*)> enter;
    } cases[] = {
        {"a0", CR_ARRAY_ENTER},
        {"80", CR_MAP_ENTER},
        {"", CR_MAP_ENTER},
        {"80", [](CborReader* r) { return CR_ARRAY_LABEL_ENTER(r, 5); }},
        {"a105a0", [](CborReader* r) { return CR_MAP_ENTER(r) && CR_ARRAY_LABEL_ENTER(r, 5); }},
        {"a105a0", [](CborReader* r) { return CR_MAP_ENTER(r) && CR_MAP_LABEL_ENTER(r, 6); }},
        {"a1", [](CborReader* r) { return CR_MAP_ENTER(r) && CR_MAP_LABEL_ENTER(r, 5); }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.message);
        Message m(hex(c.message));
        EXPECT_EQ(c.enter(&m.reader), 0);
        EXPECT_EQ(m.reader.error, -1);
    }
}

}  // namespace
