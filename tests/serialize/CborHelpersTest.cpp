#include <gtest/gtest.h>

#include <functional>
#include <type_traits>

#include "CborHelpers.h"
#include "ScriptedTransport.h"

namespace {

using lumo::test::Bytes;
using lumo::test::hex;
using lumo::test::toHex;

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
constexpr uint8_t kBytes = 6;

struct Family {
    const char* name;
    bool own_code;  // the plain form tells the decoder's code and -1; else 1 for all
    Getter plain, by_number, by_text;
    std::vector<std::pair<const char*, uint64_t>> good;
    std::vector<const char*> bad;
};

#define FORMS(Out, Name)                                                  \
    getter<Out>(Name), getter<Out>(Name##FromMapWithUint64Label, kLabel), \
        getter<Out>(Name##FromMapWithStringLabel, "ab")

const Family kFamilies[] = {
    {"Bool", false, FORMS(uint8_t, CRGetBool), {{"f5", 1}, {"f4", 0}}, {"01", "f6", "4101"}},
    {"Uint64",
     false,
     FORMS(uint64_t, CRGetUint64),
     {{"20", UINT64_MAX}, {"1bffffffffffffffff", UINT64_MAX}, {"17", 23}},
     {"f5", "40"}},
    {"Int64",
     false,
     FORMS(int64_t, CRGetInt64),
     {{"3b7fffffffffffffff", uint64_t{1} << 63}},
     {"1b8000000000000000", "f5"}},
    {"Uint32",
     true,
     FORMS(uint32_t, CRGetUint32),
     {{"1affffffff", 0xFFFFFFFF}, {"00", 0}},
     {"20", "1b0000000100000000", "1bffffffffffffffff"}},
    {"Int32",
     true,
     FORMS(int32_t, CRGetInt32),
     {{"1a7fffffff", 0x7FFFFFFF}, {"3a7fffffff", 0xFFFFFFFF80000000}},
     {"1a80000000", "3a80000000"}},
    {"Uint8",
     true,
     FORMS(uint8_t, CRGetUint8),
     {{"18ff", 255}},
     {"190100", "20", "1bffffffffffffffff", "f4"}},
    {"BytesOrString",
     false,
     getter<keymaster_blob_t>(CRGetBytesOrString, kBytes),
     getter<keymaster_blob_t>(CRGetBytesOrStringFromMapWithUint64Label, kBytes, kLabel),
     getter<keymaster_blob_t>(CRGetBytesOrStringFromMapWithStringLabel, kBytes, "ab"),
     {{"420102", 2}, {"40", 0}},
     {"626162", "02"}},
};

constexpr uint64_t kUntouched = 0x55;
constexpr int32_t kHitEnd = 6;

struct Outcome {
    int32_t error;
    uint64_t out;
};

Outcome run(const Getter& get, const std::string& message, bool in_map) {
    Message m(hex(message));
    EXPECT_TRUE(!in_map || CR_MAP_ENTER(&m.reader) == 1);
    uint64_t out = kUntouched;
    get(&m.reader, &out);
    return {m.reader.error, out};
}

TEST(CborGetters, TakeGoodValuesAndTellFailuresEachInTheirWay) {
    for (const Family& f : kFamilies) {
        const struct {
            const char* form;
            const Getter& get;
            std::string head;
            int32_t bad, end;
        } forms[] = {
            {"plain", f.plain, "", f.own_code ? -1 : 1, f.own_code ? kHitEnd : 1},
            {"by number", f.by_number, "a105", -1, kHitEnd},
            {"by text", f.by_text, "a1626162", -1, kHitEnd},
        };
        for (const auto& form : forms) {
            const bool in_map = !form.head.empty();
            for (const auto& [item, value] : f.good) {
                SCOPED_TRACE(std::string(f.name) + " " + form.form + " " + item);
                const Outcome outcome = run(form.get, form.head + item, in_map);
                EXPECT_EQ(outcome.error, 0);
                EXPECT_EQ(outcome.out, value);
            }
            for (const char* item : f.bad) {
                SCOPED_TRACE(std::string(f.name) + " " + form.form + " " + item);
                const Outcome outcome = run(form.get, form.head + item, in_map);
                EXPECT_EQ(outcome.error, form.bad);
                EXPECT_EQ(outcome.out, kUntouched);
            }
            SCOPED_TRACE(std::string(f.name) + " " + form.form + " at the end");
            EXPECT_EQ(run(form.get, form.head, in_map).error, form.end);
        }
    }
}

TEST(CborGetters, WantTheirOwnLabel) {
    const Family& bools = kFamilies[0];
    for (const char* message : {"a106f5", "a124f5", "a14105f5", "a16135f5", "81f5"}) {
        SCOPED_TRACE(message);
        Message m(hex(message));
        if (message[0] == '8') {
            EXPECT_EQ(CR_ARRAY_ENTER(&m.reader), 1);
        } else {
            EXPECT_EQ(CR_MAP_ENTER(&m.reader), 1);
        }
        uint64_t out = kUntouched;
        bools.by_number(&m.reader, &out);
        EXPECT_EQ(m.reader.error, 1);
        EXPECT_EQ(out, kUntouched);
    }
    EXPECT_EQ(run(bools.by_text, "a105f5", true).error, 1);
    EXPECT_EQ(run(bools.by_text, "a16161f5", true).error, 1);
    EXPECT_EQ(run(bools.by_text, "a163616263f5", true).error, 1);
    EXPECT_EQ(run(bools.by_text, "a1626163f5", true).error, std::memcmp("ac", "ab", 2));
}

TEST(CborReader, EntersContainersAndKeepsTheirHead) {
    Message m(
        hex("a2"
            "058201a0"
            "3903e7a0"));
    EXPECT_EQ(CR_MAP_ENTER(&m.reader), 1);
    EXPECT_EQ(m.reader.item.val.uCount, 2);
    EXPECT_EQ(CR_ARRAY_LABEL_ENTER(&m.reader, 5), 1);
    EXPECT_EQ(m.reader.item.uDataType, QCBOR_TYPE_ARRAY);
    uint8_t byte = 0;
    CRGetUint8(&m.reader, &byte);
    EXPECT_EQ(CR_MAP_ENTER(&m.reader), 1);
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
        {"9f", CR_ARRAY_ENTER},
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

TEST(CborReader, DoesNothingAfterTheFirstFailure) {
    Message m(
        hex("f5"
            "a0"));
    uint32_t number = 9;
    CRGetUint32(&m.reader, &number);
    EXPECT_EQ(m.reader.error, -1);
    EXPECT_EQ(CR_MAP_ENTER(&m.reader), 0);
    uint8_t flag = 7;
    CRGetBool(&m.reader, &flag);
    EXPECT_EQ(m.reader.error, -1);
    EXPECT_EQ(flag, 7);
    m.reader.error = 0;
    EXPECT_EQ(CR_MAP_ENTER(&m.reader), 1) << "the map was not taken before";
}

TEST(CborWriter, OpensContainers) {
    uint8_t buffer[32];
    QCBOREncodeContext encoder;
    QCBOREncode_Init(&encoder, buffer, sizeof(buffer));
    EXPECT_EQ(CW_MAP_ENTER(&encoder), 1);
    EXPECT_EQ(CW_ARRAY_LABEL_ENTER(&encoder, 5), 1);
    EXPECT_EQ(CW_ARRAY_ENTER(&encoder), 1);
    QCBOREncode_CloseArray(&encoder);
    QCBOREncode_CloseArray(&encoder);
    EXPECT_EQ(CW_MAP_LABEL_ENTER(&encoder, -1000), 1);
    QCBOREncode_CloseArray(&encoder);
    QCBOREncode_CloseArray(&encoder);
    size_t length = 0;
    ASSERT_EQ(QCBOREncode_Finish(&encoder, &length), 0);
    EXPECT_EQ(toHex(Bytes(buffer, buffer + length)),
              "a2"
              "058180"
              "3903e7a0");
}

}  // namespace
