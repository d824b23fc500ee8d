#include <cbor.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "CborText.h"

extern "C" void addWithShortForms(QCBOREncodeContext* pCtx);

namespace {

using Context = QCBOREncodeContext;

constexpr int64_t kNoLabel = QCBOR_NO_INT_LABEL;
constexpr uint64_t kNoTag = CBOR_TAG_NONE;

void openArrays(Context* c, int count) {
    for (int i = 0; i < count; ++i) {
        QCBOREncode_OpenArray(c);
    }
}

void closeArrays(Context* c, int count) {
    for (int i = 0; i < count; ++i) {
        QCBOREncode_CloseArray(c);
    }
}

void addNulls(Context* c, int count) {
    for (int i = 0; i < count; ++i) {
        QCBOREncode_AddSimple(c, CBOR_SIMPLEV_NULL);
    }
}

void addTooLong(Context* c) {
    QCBOREncode_AddBytes(c, UsefulBufC_Make(nullptr, UINT32_MAX));
}

struct Row {
    const char* what;
    Encode encode;
    const char* result;
    size_t capacity = 64;
};

void expectRows(const std::vector<Row>& rows) {
    for (const Row& row : rows) {
        EXPECT_EQ(encoded(row.encode, row.capacity), row.result) << row.what;
    }
}

// Each one also into every block that is too short for it: nothing may be written outside.
TEST(QcborEncode, writesThePublishedExamples) {
    for (const Example& example : kExamples) {
        if (example.encode == nullptr) {
            continue;
        }
        const size_t size = std::string(example.hex).size() / 2;
        EXPECT_EQ(encoded(example.encode, size), example.hex);
        for (size_t capacity = 0; capacity < size; ++capacity) {
            EXPECT_EQ(encoded(example.encode, capacity), "!1") << example.hex << ' ' << capacity;
        }
    }
}

TEST(QcborEncode, writesItems) {
    expectRows({
        {"nothing", [](Context*) {}, "", 0},
        {"head sizes",
         [](Context* c) {
             for (const uint64_t value : {0xffu, 0x100u, 0xffffu, 0x10000u, 0xffffffffu}) {
                 QCBOREncode_AddUInt64(c, value);
             }
             QCBOREncode_AddUInt64(c, 0x100000000);
         },
         "18ff19010019ffff1a000100001affffffff1b0000000100000000"},
        {"least integer", [](Context* c) { QCBOREncode_AddInt64(c, INT64_MIN); },
         "3b7fffffffffffffff"},
        {"label, tag, item", [](Context* c) { QCBOREncode_AddUInt64_3(c, "a", kNoLabel, 99, 1); },
         "6161d86301"},
        {"both labels", [](Context* c) { QCBOREncode_AddUInt64_3(c, "a", -1, kNoTag, 1); },
         "20616101"},
        {"label in an array",
         [](Context* c) {
             QCBOREncode_OpenArray(c);
             QCBOREncode_AddInt64ToMapN(c, 5, 6);
             QCBOREncode_CloseArray(c);
         },
         "820506"},
        {"unpaired item in a map",
         [](Context* c) {
             QCBOREncode_OpenMap(c);
             addNulls(c, 3);
             QCBOREncode_CloseMap(c);
         },
         "a1f6f6f6"},
        {"negative label and tag of containers",
         [](Context* c) {
             QCBOREncode_OpenMap_3(c, nullptr, static_cast<uint64_t>(int64_t{-5}), 24, 0);
             QCBOREncode_OpenArray_3(c, "a", static_cast<uint64_t>(kNoLabel), 55799, false);
             closeArrays(c, 2);
         },
         "24d818a16161d9d9f780"},
        {"wrapped",
         [](Context* c) {
             QCBOREncode_OpenArray(c);
             QCBOREncode_OpenMap_3(c, nullptr, static_cast<uint64_t>(kNoLabel), kNoTag, 1);
             QCBOREncode_OpenArray_3(c, nullptr, 1, kNoTag, true);
             addNulls(c, 23);
             closeArrays(c, 3);
         },
         "81581ca101581897f6f6f6f6f6f6f6f6f6f6f6f6f6f6f6f6f6f6f6f6f6f6f6"},
        {"short forms from C", addWithShortForms,
         "b061750101026169202021616242010202406174617803617961"
         "73f604f7616ff505f4616da006a0"
         "616181f50780",
         128},
    });
}

TEST(QcborEncode, reportsErrors) {
    expectRows({
        {"ten levels", [](Context* c) { openArrays(c, 10), closeArrays(c, 10); },
         "81818181818181818180"},
        {"eleven levels", [](Context* c) { openArrays(c, 11), closeArrays(c, 10); }, "!2"},
        {"eleven closed", [](Context* c) { openArrays(c, 11), closeArrays(c, 11); }, "!4"},
        {"nothing to close", [](Context* c) { closeArrays(c, 1); }, "!4"},
        {"still open", [](Context* c) { openArrays(c, 1); }, "!11"},
        {"still open before too small", [](Context* c) { openArrays(c, 1), addNulls(c, 1); }, "!11",
         0},
        {"room for the head lacks at the close",
         [](Context* c) { openArrays(c, 1), addNulls(c, 1), closeArrays(c, 1); }, "!1", 1},
        {"too long a string", addTooLong, "!7"},
        {"other simple values", [](Context* c) { QCBOREncode_AddSimple(c, 19); }, "!12"},
        {"and no break", [](Context* c) { QCBOREncode_AddSimple(c, CBOR_SIMPLE_BREAK); }, "!12"},
        {"the last of 4, 7 and 12 wins",
         [](Context* c) { addTooLong(c), QCBOREncode_AddSimple(c, 24); }, "!12"},
        {"too long last", [](Context* c) { QCBOREncode_AddSimple(c, 24), addTooLong(c); }, "!7"},
        {"too deep does not replace another",
         [](Context* c) { QCBOREncode_AddSimple(c, 24), openArrays(c, 11); }, "!12"},
        {"balanced calls keep the error",
         [](Context* c) { QCBOREncode_AddSimple(c, 24), openArrays(c, 2), closeArrays(c, 2); },
         "!12"},
        {"set by the caller",
         [](Context* c) {
             openArrays(c, 1);
             c->uError = QCBOR_ERR_UNSUPPORTED;
             addNulls(c, 1), closeArrays(c, 1);
         },
         "!5"},
        {"nothing after too small",
         [](Context* c) {
             QCBOREncode_AddText(c, SZToUsefulBufC("abc"));
             addNulls(c, 1);
             EXPECT_EQ(c->uError, QCBOR_SUCCESS);
             EXPECT_EQ(toHex(c->OutBuf.UB.ptr, 3), "630000");
         },
         "!1", 3},
        {"an early finish sticks",
         [](Context* c) {
             size_t size = 77;
             openArrays(c, 1);
             EXPECT_EQ(QCBOREncode_Finish(c, &size), QCBOR_ERR_ARRAY_OR_MAP_STILL_OPEN);
             EXPECT_EQ(size, 77u);
             closeArrays(c, 1);
         },
         "!11"},
    });
}

TEST(QcborEncode, limitsItems) {
    const size_t capacity = 200000;
    EXPECT_EQ(encoded([](Context* c) { addNulls(c, 65534); }, capacity).size(), 2 * 65534u);
    EXPECT_EQ(encoded([](Context* c) { addNulls(c, 65535); }, capacity), "!3");
    const auto map = [](Context* c) { openArrays(c, 1), addNulls(c, 65535), closeArrays(c, 1); };
    EXPECT_EQ(encoded(map, capacity), "!3");
    const auto after = [](Context* c) { addNulls(c, 65534), openArrays(c, 1), closeArrays(c, 1); };
    EXPECT_EQ(encoded(after, capacity), "!3");
}

TEST(QcborEncode, onlyCountsWithoutABuffer) {
    Context context;
    EncodedCBOR result = {};
    QCBOREncode_Init(&context, nullptr, UINT32_MAX);
    QCBOREncode_OpenArray(&context);
    QCBOREncode_AddBytes(&context, UsefulBufC_Make(nullptr, 70000));
    QCBOREncode_CloseArray(&context);
    QCBOREncode_AddInt64ToMapN(&context, 1, 2);
    EXPECT_EQ(QCBOREncode_Finish2(&context, &result), QCBOR_SUCCESS);
    EXPECT_EQ(result.Bytes.ptr, nullptr);
    EXPECT_EQ(result.Bytes.len, 1 + 5 + 70000 + 2u);
    EXPECT_EQ(result.uItems, 3);

    // The given length is the limit all the same, and one above 32 bits is refused.
    QCBOREncode_AddBytes(&context, UsefulBufC_Make(nullptr, UINT32_MAX - 1));
    EXPECT_EQ(QCBOREncode_Finish2(&context, &result), QCBOR_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(result.uItems, 3);
}

#if SIZE_MAX > UINT32_MAX
TEST(QcborEncode, refusesBuffersAbove32Bits) {
    Context context;
    size_t size = 0;
    QCBOREncode_Init(&context, nullptr, size_t{UINT32_MAX} + 1);
    QCBOREncode_OpenArray(&context);
    QCBOREncode_AddInt64(&context, 1);
    QCBOREncode_CloseArray(&context);
    EXPECT_EQ(QCBOREncode_Finish(&context, &size), QCBOR_ERR_BUFFER_TOO_LARGE);
    QCBOREncode_CloseArray(&context);
    EXPECT_EQ(QCBOREncode_Finish(&context, &size), QCBOR_ERR_TOO_MANY_CLOSES);
}
#endif

// A document with heads of every size that is too long to write out, as libcbor's reader sees it.
TEST(QcborEncode, anIndependentReaderAgrees) {
    Bytes buffer(200000);
    const Bytes payload(70000, 0x5a);
    Context context;
    QCBOREncode_Init(&context, buffer.data(), buffer.size());
    QCBOREncode_OpenMap(&context);
    for (int64_t label = 0; label < 300; ++label) {
        QCBOREncode_AddInt64ToMapN(&context, label, -label);
    }
    QCBOREncode_OpenArray_3(&context, nullptr, 300, kNoTag, true);
    QCBOREncode_AddBytes(&context, UsefulBufC_Make(payload.data(), payload.size()));
    QCBOREncode_CloseArray(&context);
    QCBOREncode_CloseMap(&context);
    size_t size = 0;
    ASSERT_EQ(QCBOREncode_Finish(&context, &size), QCBOR_SUCCESS);

    struct Release {
        void operator()(cbor_item_t* item) const { cbor_decref(&item); }
    };
    cbor_load_result loaded;
    const std::unique_ptr<cbor_item_t, Release> map(cbor_load(buffer.data(), size, &loaded));
    ASSERT_EQ(loaded.error.code, CBOR_ERR_NONE);
    EXPECT_EQ(loaded.read, size);
    ASSERT_TRUE(cbor_isa_map(map.get()) && cbor_map_size(map.get()) == 301);
    const cbor_pair* pairs = cbor_map_handle(map.get());
    EXPECT_EQ(cbor_get_int(pairs[299].key), 299u);
    EXPECT_TRUE(cbor_isa_negint(pairs[299].value) && cbor_get_int(pairs[299].value) == 298);

    ASSERT_TRUE(cbor_isa_bytestring(pairs[300].value));
    const std::unique_ptr<cbor_item_t, Release> wrapped(
        cbor_load(cbor_bytestring_handle(pairs[300].value),
                  cbor_bytestring_length(pairs[300].value), &loaded));
    ASSERT_EQ(loaded.error.code, CBOR_ERR_NONE);
    ASSERT_TRUE(cbor_isa_array(wrapped.get()) && cbor_array_size(wrapped.get()) == 1);
    const cbor_item_t* bytes = cbor_array_handle(wrapped.get())[0];
    EXPECT_EQ(Bytes(cbor_bytestring_handle(bytes),
                    cbor_bytestring_handle(bytes) + cbor_bytestring_length(bytes)),
              payload);
}

TEST(UsefulBuf, copiesAndCompares) {
    uint8_t space[2] = {};
    UsefulBuf target = UsefulBuf_Make(space, sizeof(space));
    EXPECT_EQ(UsefulBuf_Copy(&target, SZLiteralToUsefulBufC("abc")), 1);
    EXPECT_EQ(UsefulBuf_Copy(&target, SZLiteralToUsefulBufC("b")), 0);
    EXPECT_EQ(target.len, 1u);
    EXPECT_EQ(UsefulBuf_Compare(UsefulBuf_Const(target), SZToUsefulBufC("b")), 0);
    EXPECT_LT(UsefulBuf_Compare(SZToUsefulBufC("b"), SZToUsefulBufC("aa")), 0);
    EXPECT_GT(UsefulBuf_Compare(SZToUsefulBufC("b"), SZToUsefulBufC("a")), 0);
    EXPECT_EQ(UsefulBufC_Unconst(SZToUsefulBufC("")).len, 0u);
}

}  // namespace
