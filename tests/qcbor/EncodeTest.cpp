#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "CborText.h"

namespace {

using Context = QCBOREncodeContext;

constexpr uint64_t kNoLabel = QCBOR_NO_INT_LABEL;
constexpr uint64_t kNoTag = CBOR_TAG_NONE;

// Plays one call for each character.
void play(Context* c, const std::string& script) {
    size_t size = 0;
    for (const char call : script) {
        if (call == '[') QCBOREncode_OpenArray(c);
        if (call == '{') QCBOREncode_OpenMap(c);
        // Wrapped in a byte string; the map with a label and a tag, too.
        if (call == '(') QCBOREncode_OpenArray_3(c, nullptr, kNoLabel, kNoTag, true);
        if (call == '<') QCBOREncode_OpenMap_3(c, nullptr, ~uint64_t{4}, 24, true);
        if (call == ']') QCBOREncode_CloseArray(c);
        if (call == 'n') QCBOREncode_AddSimple(c, CBOR_SIMPLEV_NULL);
        if (call == 'l') QCBOREncode_AddUInt64_3(c, "a", -1, 99, 1);  // both labels and a tag
        if (call == 'b') QCBOREncode_AddSimple(c, CBOR_SIMPLE_BREAK);
        if (call == 's') QCBOREncode_AddSimple(c, CBOR_SIMPLEV_FALSE - 1);
        if (call == 'k') QCBOREncode_AddBytes(c, UsefulBufC_Make(nullptr, 70000));
        if (call == 'g') QCBOREncode_AddBytes(c, UsefulBufC_Make(nullptr, UINT32_MAX - 1));
        if (call == 'h') QCBOREncode_AddBytes(c, UsefulBufC_Make(nullptr, UINT32_MAX));
        if (call == 'e') c->uError = QCBOR_ERR_UNSUPPORTED;
        if (call == 'f') QCBOREncode_Finish(c, &size);
    }
}

// Finish's result as "!error", else what was encoded, in hex. The block has `capacity` bytes; from
// 2^32 - 1 on there is none, and the length that was counted is shown as "#length".
std::string encoded(const std::string& script, size_t capacity) {
    const bool counts = capacity >= UINT32_MAX;
    const auto block = counts ? nullptr : std::make_unique<uint8_t[]>(capacity);
    Context context;
    QCBOREncode_Init(&context, block.get(), capacity);
    play(&context, script);
    EncodedCBOR result = {{nullptr, 77}, 77};
    const int error = QCBOREncode_Finish2(&context, &result);
    EXPECT_TRUE(error == QCBOR_SUCCESS || (result.Bytes.len == 77 && result.uItems == 77));
    if (error != QCBOR_SUCCESS) return '!' + std::to_string(error);
    EXPECT_EQ(result.Bytes.ptr, block.get());
    const size_t size = result.Bytes.len;
    return counts ? '#' + std::to_string(size) : toHex(result.Bytes.ptr, size);
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
        {"{nnn]", "a1f6f6f6"},
        {"n[]nfn", "f680f6f6"},
        {"{<n]]", "a124d81842a0f6"},
        {"[(nnnnnnnnnnnnnnnnnnnnnn(n]]]",
         "81581a97f6f6f6f6f6f6f6f6f6f6f6f6f6f6f6f6f6f6f6f6f6f64281f6"},
        {"[[[[[[[[[[]]]]]]]]]]", "81818181818181818180"},
        {"[[[[[[[[[[[]]]]]]]]]]", "!2"},
        {"[[[[[[[[[[[]]]]]]]]]]]", "!4"},
        {"]", "!4"},
        {"[f]", "!11"},
        {"[n", "!11", 0},
        {"[n]", "!1", 1},
        {"h", "!7"},
        {"s", "!12"},
        {"hb", "!12"},
        {"bh", "!7"},

        {"b[n]]", "!4"},
        {"[en]", "!5"},
        {nulls + "n", "!3", 200000},
        {nulls + "[]", "!3", 200000},
        {'[' + nulls + "n]", "!3", 200000},
        {'b' + nulls + "nn", "!12", 200000},
        {"[(k]]", "#70012", UINT32_MAX},  // 1, 5 for the string around 1 + 5 + 70000
        {"gn", "!1", UINT32_MAX},
#if SIZE_MAX > UINT32_MAX
        {"[n]", "!7", size_t{UINT32_MAX} + 1},
        {"[n]]", "!4", size_t{UINT32_MAX} + 1},
#endif
    };
    for (const auto& row : kRows) {
        EXPECT_EQ(encoded(row.script, row.capacity), row.result) << row.script;
    }
    EXPECT_EQ(encoded(nulls, 200000).size(), 2 * nulls.size());
}

}  // namespace
