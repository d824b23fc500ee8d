#include <gtest/gtest.h>

#include <random>

#include "CborText.h"

namespace {

constexpr int8_t kNormal = QCBOR_DECODE_MODE_NORMAL;
constexpr int8_t kStrings = QCBOR_DECODE_MODE_MAP_STRINGS_ONLY;
constexpr int8_t kArray = QCBOR_DECODE_MODE_MAP_AS_ARRAY;

const struct {
    const char* hex;
    const char* items;
    int8_t mode = kNormal;
} kRows[] = {
    // heads of every form
    {"1900171b000000000000000539ffff", "0:23 0:5 0:-65536 "},
    {"1b7fffffffffffffff1b8000000000000000", "0:9223372036854775807 0:9223372036854775808u "},
    {"3b7fffffffffffffff3b800000000000000001", "0:-9223372036854775808 !9 0:1 "},
    {"f8fff820e0f3", "0:simple255 0:simple32 0:simple0 0:simple19 "},
    {"f800f814f81f01", "!14 !14 !14 0:1 "},
    {"1c3d5e7fdfff01", "!5 !5 !5 !5 !5 !5 0:1 "},
    // cut off; the head of a string is consumed before its content is missed
    {"1b00000000000000", "finish!16"},
    {"42", ""},
    {"5bffffffffffffffff", ""},
    {"5b000000010000000161", "finish!16"},
    {"7affffffff61", "finish!16"},
    {"c1", ""},
    {"8201", "0:[2 1:1 "},
    {"a10118", "0:{1 finish!16"},
    // counts and depth
    {"9a0001000001", "!3 0:1 "},
    {"bb0000000100000000", "!3 "},
    {"8181818181818181818180", "0:[1 1:[1 2:[1 3:[1 4:[1 5:[1 6:[1 7:[1 8:[1 9:[1 10:[0 "},
    {"818181818181818181818101", "0:[1 1:[1 2:[1 3:[1 4:[1 5:[1 6:[1 7:[1 8:[1 9:[1 !2 10:1 "},
    // containers count in their parent
    {"a201a102a103040506", "0:{2 1:1={1 2:2={1 3:3=4 1:5=6 "},
    {"a2018181020304", "0:{2 1:1=[1 2:[1 3:2 1:3=4 "},
    {"a1018202030607", "0:{1 1:1=[2 2:2 2:3 0:6 0:7 "},
    // labels
    {"a320031bffffffffffffffff04414205", "0:{3 1:-1=3 1:18446744073709551615u=4 1:h'42'=5 "},
    {"a1f501", "0:{1 !10 "},
    {"a1c10102", "0:{1 !10 "},
    {"a1d86305c102", "0:{1 1:5=#1/2 epoch2+0 "},
    {"a1616101", "0:{1 1:\"a\"=1 ", kStrings},
    {"a10102", "0:{1 !10 ", kStrings},
    {"a2f5010203a1040506", "0:{2 1:type21 1:1 1:2 1:3 0:{1 1:4 1:5 0:6 ", kArray},
    {"a10102", "0:{1 1:1=2 ", 77},
    // tags
    {"c001", "!15 "},
    {"c16161", "!15 "},
    {"c26161c301", "!15 !15 "},
    {"c11b8000000000000000", "!13 "},
    {"c1f9be00", "0:#1/2 epoch-1+-0.5 "},
    {"c1f97e00c1f97c00c1f9fc00", "!13 !13 !13 "},
    {"c1fb43e0000000000000c1fbc3e0000000000000", "!13 0:#1/2 epoch-9223372036854775808+0 "},
    {"c4d5d83ed83f01", "0:#63/4000000000200010 1 "},
    {"d9d9f7d74101", "0:#23/8000000000800000 h'01' "},
};

TEST(QcborDecode, givesTheItemsAndErrorsOfItsTable) {
    for (const auto& row : kRows) {
        EXPECT_EQ(decoded(fromHex(row.hex), row.mode), row.items) << row.hex;
    }
}

// A pre-filled member stays where it does not apply, with a tag as without one.
TEST(QcborDecode, leavesTheRestOfTheItemAlone) {
    const Bytes input = fromHex("83f5d86301a1190102f4");
    QCBORDecodeContext context;
    QCBORDecode_Init(&context, {input.data(), input.size()}, QCBOR_DECODE_MODE_NORMAL);
    QCBORItem filled;
    memset(&filled, 0xab, sizeof(filled));

    for (int i = 0; i < 4; ++i) {
        QCBORItem item = filled;
        ASSERT_EQ(QCBORDecode_GetNext(&context, &item), QCBOR_SUCCESS);
        EXPECT_EQ(item.uLabelType, 0xab);
        EXPECT_EQ(memcmp(&item.label, &filled.label, sizeof(item.label)), 0);
        EXPECT_EQ(item.val.int64 == filled.val.int64, item.uDataType == QCBOR_TYPE_TRUE);
    }
    QCBORItem item = filled;
    ASSERT_EQ(QCBORDecode_GetNext(&context, &item), QCBOR_SUCCESS);
    EXPECT_EQ(item.uDataType, QCBOR_TYPE_FALSE);
    EXPECT_EQ(item.val.int64, filled.val.int64);
    EXPECT_EQ(item.label.int64, 258);
}

// ---- Hostile input: `decoded` ends, stays inside the input and reports nothing unknown ----

void sweep(const Bytes& input) {
    for (const int8_t mode : {kNormal, kStrings, kArray}) {
        const std::string items = decoded(input, mode);
        ASSERT_EQ(items.find("calls"), std::string::npos) << toHex(input);
        ASSERT_EQ(items.find(":type255"), std::string::npos) << toHex(input);
    }
}

// Every input of two bytes; then long ones, half of whose bytes are heads of containers, labels and
// tags, or nothing would ever nest.
TEST(QcborDecode, survivesHostileInput) {
    for (unsigned both = 0; both < 0x10000; ++both) {
        sweep({static_cast<uint8_t>(both >> 8), static_cast<uint8_t>(both)});
    }
    const Bytes heads = fromHex("8182839818a1a2a3b80201206161c0c1c2c3d8615b7bf6f5f900fb4142ff");
    std::mt19937 random(20180901);
    for (int round = 0; round < 20000; ++round) {
        Bytes input(random() % 48);
        for (uint8_t& byte : input) {
            byte = static_cast<uint8_t>(random());
            if (random() % 2 == 0) byte = heads[random() % heads.size()];
        }
        sweep(input);
    }
}

}  // namespace
