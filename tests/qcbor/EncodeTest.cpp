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

// Plays one call per character.
void play(Context* c, const std::string& script) {
    size_t size = 0;
    for (const char call : script) {
        switch (call) {
            case '[':
            case '(':  // wrapped in a byte string
                QCBOREncode_OpenArray_3(c, nullptr, uint64_t{kNoLabel}, kNoTag, call == '(');
                break;
            case '{':
            case '<':  // wrapped, with a label and a tag
                QCBOREncode_OpenMap_3(c, nullptr, call == '<' ? ~uint64_t{4} : uint64_t{kNoLabel},
                                      call == '<' ? 24 : kNoTag, call == '<');
                break;
            case ']':
                QCBOREncode_CloseArray(c);
                break;
            case 'n':
                QCBOREncode_AddSimple(c, CBOR_SIMPLEV_NULL);
                break;
            case 't':
                QCBOREncode_AddText(c, SZToUsefulBufC("abc"));
                break;
            case 'l':  // both labels and a tag
                QCBOREncode_AddUInt64_3(c, "a", -1, 99, 1);
                break;
            case 'b':
                QCBOREncode_AddSimple(c, CBOR_SIMPLE_BREAK);
                break;
            case 's':
                QCBOREncode_AddSimple(c, CBOR_SIMPLEV_FALSE - 1);
                break;
            case 'h':  // huge
                QCBOREncode_AddBytes(c, UsefulBufC_Make(nullptr, UINT32_MAX));
                break;
            case 'e':
                c->uError = QCBOR_ERR_UNSUPPORTED;
                break;
            case 'f':
                QCBOREncode_Finish(c, &size);
                break;
            default:
                FAIL() << call;
        }
    }
}

// Finish's result as "!error", else what was encoded, in hex. The block has `capacity` bytes.
std::string encoded(const std::string& script, size_t capacity) {
    const auto block = std::make_unique<uint8_t[]>(capacity);
    Context context;
    QCBOREncode_Init(&context, block.get(), capacity);
    play(&context, script);
    size_t size = 77;
    const int error = QCBOREncode_Finish(&context, &size);
    EXPECT_TRUE(error == QCBOR_SUCCESS || size == 77);
    return error != QCBOR_SUCCESS ? '!' + std::to_string(error) : toHex(block.get(), size);
}

TEST(QcborEncode, nestsAndReportsErrors) {
    const std::string nulls(65534, 'n');
    const struct {
        std::string script;
        std::string result;
        size_t capacity = 64;
    } kRows[] = {
        {"", "", 0},
        {"l", "206161d86301"},
        {"[l]", "83206161d86301"},
        {"{nnn]", "a1f6f6f6"},
        {"n[]nfn", "f680f6f6"},
        {"{<n]]", "a124d81842a0f6"},
        {"[(nnnnnnnnnnnnnnnnnnnnnn(n]]]",
         "81581a97f6f6f6f6f6f6f6f6f6f6f6f6f6f6f6f6f6f6f6f6f6f64281f6"},
        {"[[[[[[[[[[]]]]]]]]]]", "81818181818181818180"},
        {"[[[[[[[[[[[]]]]]]]]]]", "!2"},
        {"[[[[[[[[[[[]]]]]]]]]]]", "!4"},
        {"]", "!4"},
        {"[", "!11"},
        {"[f]", "!11"},
        {"[n", "!11", 0},
        {"[n]", "!1", 1},
        {"tn", "!1", 3},
        {"h", "!7"},
        {"s", "!12"},
        {"b", "!12"},
        {"hb", "!12"},
        {"bh", "!7"},
        {"b[[[[[[[[[[[", "!12"},
        {"b[[n]]", "!12"},
        {"b[n]]", "!4"},
        {"[en]", "!5"},
        {nulls + "n", "!3", 200000},
        {nulls + "[]", "!3", 200000},
        {'[' + nulls + "n]", "!3", 200000},
        {'b' + nulls + "nn", "!12", 200000},
    };
    for (const auto& row : kRows) {
        EXPECT_EQ(encoded(row.script, row.capacity), row.result) << row.script;
    }
    EXPECT_EQ(encoded(nulls, 200000).size(), 2 * nulls.size());
}

TEST(QcborEncode, writesHeadsAndShortForms) {
    uint8_t buffer[128];
    Context context;
    EncodedCBOR result;
    QCBOREncode_Init(&context, buffer, sizeof(buffer));
    addWithShortForms(&context);
    for (const uint64_t value : {0xffu, 0x100u, 0xffffu, 0x10000u, 0xffffffffu}) {
        QCBOREncode_AddUInt64(&context, value);
    }
    QCBOREncode_AddInt64(&context, 0x100000000);
    QCBOREncode_AddInt64(&context, INT64_MIN);
    ASSERT_EQ(QCBOREncode_Finish2(&context, &result), QCBOR_SUCCESS);
    EXPECT_EQ(result.uItems, 8);
    EXPECT_EQ(
        toHex(result.Bytes.ptr, result.Bytes.len),
        "b06175010102616920202161624201020240617461780361796173f604f7616ff505f4616da006a0616181f5"
        "078018ff19010019ffff1a000100001affffffff1b00000001000000003b7fffffffffffffff");
}

// After a piece that did not fit nothing more is written, though it would fit.
TEST(QcborEncode, staysFull) {
    uint8_t buffer[3] = {};
    Context context;
    QCBOREncode_Init(&context, buffer, sizeof(buffer));
    play(&context, "tn");
    EXPECT_EQ(context.uError, QCBOR_SUCCESS);
    EXPECT_EQ(toHex(buffer, sizeof(buffer)), "630000");
}

TEST(QcborEncode, onlyCountsWithoutABuffer) {
    Context context;
    EncodedCBOR result;
    QCBOREncode_Init(&context, nullptr, UINT32_MAX);
    QCBOREncode_AddBytesToMapN(&context, 1, UsefulBufC_Make(nullptr, 70000));
    play(&context, "[n]");
    EXPECT_EQ(QCBOREncode_Finish2(&context, &result), QCBOR_SUCCESS);
    EXPECT_TRUE(UsefulBuf_IsNULL(result.Bytes));
    EXPECT_EQ(result.Bytes.len, 1 + 5 + 70000 + 2u);
    EXPECT_EQ(result.uItems, 3);

    // The given length is the limit all the same.
    QCBOREncode_AddBytes(&context, UsefulBufC_Make(nullptr, UINT32_MAX - 1));
    EXPECT_EQ(QCBOREncode_Finish2(&context, &result), QCBOR_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(result.uItems, 3);
}

#if SIZE_MAX > UINT32_MAX
TEST(QcborEncode, refusesBuffersAbove32Bits) {
    Context context;
    size_t size = 0;
    QCBOREncode_Init(&context, nullptr, size_t{UINT32_MAX} + 1);
    play(&context, "[n]");
    EXPECT_EQ(QCBOREncode_Finish(&context, &size), QCBOR_ERR_BUFFER_TOO_LARGE);
    play(&context, "]");
    EXPECT_EQ(QCBOREncode_Finish(&context, &size), QCBOR_ERR_TOO_MANY_CLOSES);
}
#endif

// A document with heads of several sizes, too long to write out, as libcbor's own reader sees it.
TEST(QcborEncode, anIndependentReaderAgrees) {
    Bytes buffer(200000);
    const Bytes payload(70000, 0x5a);
    Context context;
    size_t size = 0;
    QCBOREncode_Init(&context, buffer.data(), buffer.size());
    QCBOREncode_OpenMap(&context);
    for (int64_t label = 0; label < 300; ++label) {
        QCBOREncode_AddInt64ToMapN(&context, label, -label);
    }
    QCBOREncode_OpenArray_3(&context, nullptr, 300, kNoTag, true);
    QCBOREncode_AddBytes(&context, UsefulBufC_Make(payload.data(), payload.size()));
    play(&context, "]]");
    ASSERT_EQ(QCBOREncode_Finish(&context, &size), QCBOR_SUCCESS);

    cbor_load_result loaded;
    cbor_item_t* map = cbor_load(buffer.data(), size, &loaded);
    ASSERT_EQ(loaded.error.code, CBOR_ERR_NONE);
    EXPECT_EQ(loaded.read, size);
    EXPECT_TRUE(cbor_isa_map(map) && cbor_map_size(map) == 301);
    const cbor_pair* pairs = cbor_map_handle(map);
    EXPECT_EQ(cbor_get_int(pairs[299].key), 299u);
    EXPECT_TRUE(cbor_isa_negint(pairs[299].value) && cbor_get_int(pairs[299].value) == 298);
    // The wrapped array: its head, the five bytes of the byte string's, and the payload.
    EXPECT_TRUE(cbor_isa_bytestring(pairs[300].value));
    EXPECT_EQ(cbor_bytestring_length(pairs[300].value), 1 + 5 + payload.size());
    cbor_decref(&map);
}

TEST(UsefulBuf, copiesAndCompares) {
    uint8_t space[2] = {};
    UsefulBuf target = UsefulBuf_Make(space, sizeof(space));
    EXPECT_EQ(UsefulBuf_Copy(&target, SZLiteralToUsefulBufC("abc")), 1);
    EXPECT_EQ(UsefulBuf_Copy(&target, SZLiteralToUsefulBufC("b")), 0);
    EXPECT_EQ(UsefulBuf_Compare(UsefulBuf_Const(target), SZToUsefulBufC("b")), 0);
    EXPECT_LT(UsefulBuf_Compare(SZToUsefulBufC("b"), SZToUsefulBufC("aa")), 0);
    EXPECT_GT(UsefulBuf_Compare(SZToUsefulBufC("b"), SZToUsefulBufC("a")), 0);
    EXPECT_EQ(UsefulBufC_Unconst(SZToUsefulBufC("")).len, 0u);
}

}  // namespace
