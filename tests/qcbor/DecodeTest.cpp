#include <gtest/gtest.h>

#include <random>

#include "CborText.h"

namespace {

struct Row {
    const char* hex;
    const char* items;
    int8_t mode = QCBOR_DECODE_MODE_NORMAL;
};

void expectRows(const std::vector<Row>& rows) {
    for (const Row& row : rows) {
        EXPECT_EQ(decoded(fromHex(row.hex), row.mode), row.items) << row.hex;
    }
}

TEST(QcborDecode, readsHeadsOfEveryForm) {
    expectRows({
        {"1800", "0:0 "},
        {"1900171b000000000000000539ffff", "0:23 0:5 0:-65536 "},
        {"1b7fffffffffffffff1b8000000000000000", "0:9223372036854775807 0:9223372036854775808u "},
        {"3b7fffffffffffffff", "0:-9223372036854775808 "},
        {"3b800000000000000001", "!9 0:1 "},
        {"f8fff820e0f3", "0:simple255 0:simple32 0:simple0 0:simple19 "},
        {"f800f814f81f01", "!14 !14 !14 0:1 "},
        {"1c01", "!5 0:1 "},
        {"3d5e7fdfff01", "!5 !5 !5 !5 !5 0:1 "},
        {"580161", "0:h'61' "},
        {"", ""},
    });
}

TEST(QcborDecode, endsWhereTheInputIsCutOff) {
    expectRows({
        {"18", "finish!16"},
        {"1b00000000000000", "finish!16"},
        {"f8", "finish!16"},
        {"fb3ff1", "finish!16"},
        // The head of a string is consumed before its content is missed.
        {"42", ""},
        {"4201", "finish!16"},
        {"5bffffffffffffffff", ""},
        {"5b000000010000000161", "finish!16"},
        {"7affffffff61", "finish!16"},
        {"c1", ""},
        {"8201", "0:[2 1:1 finish!11"},
        {"a101", "0:{1 finish!11"},
        {"a10118", "0:{1 finish!16"},
    });
}

TEST(QcborDecode, limitsCountsAndDepth) {
    expectRows({
        {"99ffff", "0:[65535 finish!11"},
        {"b9ffff", "0:{65535 finish!11"},
        {"9a0001000001", "!3 0:1 "},
        {"ba00010000", "!3 "},
        {"9b000000010000000001", "!3 0:1 "},
        {"bb0000000100000000", "!3 "},
        {"8181818181818181818101", "0:[1 1:[1 2:[1 3:[1 4:[1 5:[1 6:[1 7:[1 8:[1 9:[1 10:1 "},
        {"8181818181818181818180", "0:[1 1:[1 2:[1 3:[1 4:[1 5:[1 6:[1 7:[1 8:[1 9:[1 10:[0 "},
        {"818181818181818181818101", "0:[1 1:[1 2:[1 3:[1 4:[1 5:[1 6:[1 7:[1 8:[1 9:[1 !2 10:1 "},
    });
}

TEST(QcborDecode, countsContainersInTheirParent) {
    expectRows({
        {"8281010203", "0:[2 1:[1 2:1 1:2 0:3 "},
        {"a201a102a103040506", "0:{2 1:1={1 2:2={1 3:3=4 1:5=6 "},
        {"82a1018102a10304", "0:[2 1:{1 2:1=[1 3:2 1:{1 2:3=4 "},
        {"a2018181020304", "0:{2 1:1=[1 2:[1 3:2 1:3=4 "},
        {"a1018202030607", "0:{1 1:1=[2 2:2 2:3 0:6 0:7 "},
        {"828080a001", "0:[2 1:[0 1:[0 0:{0 0:1 "},
    });
}

TEST(QcborDecode, takesLabelAndValueTogether) {
    expectRows({
        {"a461610120031bffffffffffffffff04414205",
         "0:{4 1:\"a\"=1 1:-1=3 1:18446744073709551615u=4 1:h'42'=5 "},
        {"a201020103", "0:{2 1:1=2 1:1=3 "},
        {"a101c1", "0:{1 finish!11"},
    });
}

TEST(QcborDecode, refusesLabelsOfOtherTypes) {
    const int8_t kStrings = QCBOR_DECODE_MODE_MAP_STRINGS_ONLY;
    const int8_t kArray = QCBOR_DECODE_MODE_MAP_AS_ARRAY;
    expectRows({
        {"a1f501", "0:{1 !10 finish!11"},
        {"a1f93c0001", "0:{1 !10 finish!11"},
        {"a18001", "0:{1 !10 finish!11"},
        {"a1c10102", "0:{1 !10 finish!11"},
        {"a1c2410102", "0:{1 !10 finish!11"},
        {"a1d86305c102", "0:{1 1:5=#1/2 epoch2+0 "},
        {"a1616101", "0:{1 1:\"a\"=1 ", kStrings},
        {"a10102", "0:{1 !10 finish!11", kStrings},
        {"a1416102", "0:{1 !10 finish!11", kStrings},
        {"a2f5010203a1040506", "0:{2 1:type21 1:1 1:2 1:3 0:{1 1:4 1:5 0:6 ", kArray},
        {"a10102", "0:{1 1:1=2 ", 77},
    });
}

TEST(QcborDecode, reportsTags) {
    expectRows({
        {"c001", "!15 "},
        {"c0c10102", "!15 0:2 "},
        {"c16161", "!15 "},
        {"c11b7fffffffffffffff", "0:#1/2 epoch9223372036854775807+0 "},
        {"c11b8000000000000000", "!13 "},
        {"c13903e7", "0:#1/2 epoch-1000+0 "},
        {"c1f9be00", "0:#1/2 epoch-1+-0.5 "},
        {"c1f97e00c1f97c00c1f9fc00", "!13 !13 !13 "},
        {"c1fb43e0000000000000c1fbc3e0000000000000", "!13 0:#1/2 epoch-9223372036854775808+0 "},
        {"c26161c301", "!15 !15 "},
        {"c4d5d83ed83f01", "0:#63/4000000000200010 1 "},
        {"d9d9f7d74101", "0:#23/8000000000800000 h'01' "},
        {"c1c101", "0:#1/2 epoch1+0 "},
    });
}

// A pre-filled member stays where it does not apply, with a tag as without one, and on an error.
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

    item = filled;
    EXPECT_EQ(QCBORDecode_GetNext(&context, &item), QCBOR_ERR_HIT_END);
    EXPECT_EQ(item.uDataType, 0xab);
    EXPECT_EQ(item.uTagBits, filled.uTagBits);
}

// ---- Hostile input: `decoded` ends, stays inside the input and reports nothing unknown ----

void sweep(const Bytes& input) {
    for (int8_t mode = QCBOR_DECODE_MODE_NORMAL; mode <= QCBOR_DECODE_MODE_MAP_AS_ARRAY; ++mode) {
        const std::string items = decoded(input, mode);
        ASSERT_EQ(items.find("calls"), std::string::npos) << toHex(input.data(), input.size());
        ASSERT_EQ(items.find(":type255"), std::string::npos) << toHex(input.data(), input.size());
    }
}

TEST(QcborHostile, everyInputOfOneAndTwoBytes) {
    for (unsigned first = 0; first < 256; ++first) {
        sweep({static_cast<uint8_t>(first)});
        for (unsigned second = 0; second < 256; ++second) {
            sweep({static_cast<uint8_t>(first), static_cast<uint8_t>(second)});
        }
    }
}

// Half of the bytes are heads of containers, labels and tags, or nothing would ever nest.
TEST(QcborHostile, randomInputs) {
    const Bytes heads = fromHex("8182839818a1a2a3b80201206161c0c1c2c3d8615b7bf6f5f900fb4142ff");
    std::mt19937 random(20180901);
    for (int round = 0; round < 20000; ++round) {
        Bytes input(random() % 48);
        for (uint8_t& byte : input) {
            byte =
                random() % 2 == 0 ? heads[random() % heads.size()] : static_cast<uint8_t>(random());
        }
        sweep(input);
    }
}

}  // namespace
