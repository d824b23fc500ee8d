#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "KeyBlobReader.h"
#include "KeyBlobs.h"
#include "LogCapture.h"

namespace {

using keymasterdevice::EarlyBootRule;
using lumo::test::blobOf;
using testing::ElementsAre;
using Lines = std::vector<std::string>;

struct Reading {
    explicit Reading(const std::vector<uint8_t>& blob, EarlyBootRule rule = EarlyBootRule::kRead) {
        result = readCharacteristics({blob.data(), blob.size()}, rule, &characteristics);
        hw = lumo::test::linesOf(characteristics.hw_enforced);
        sw = lumo::test::linesOf(characteristics.sw_enforced);
    }
    Reading(const Reading&) = delete;
    ~Reading() { keymaster_free_characteristics(&characteristics); }

    keymaster_key_characteristics_t characteristics = {};
    keymaster_error_t result;
    Lines hw;
    Lines sw;
};

TEST(KeyBlobReader, ReadsEveryFieldOfTheOldestBlobsInOrder) {
    const Reading reading(blobOf(
        319, 4, 0,
        "24:4=31 28:4=2 32:4=3 48:4=2 52:1=1 53:4=3 57:1=0x80 58:4=256 62:4=32 82:4=1 86:4=10 "
        "90:4=11 94:4=12 98:4=13 102:4=14 118:4=5 122:4=3 126:4=5 154:4=2 158:1=2 159:1=1 160:4=96 "
        "164:1=1 165:4=1 169:1=1 170:8=0x102030405060708 178:1=1 179:1=1 180:4=9 184:1=1 185:4=7 "
        "189:1=1 190:4=8 194:1=1 195:8=0xf1f2f3f4f5f6f7f8 235:4=1 239:1=1 240:1=1 241:4=3 245:1=1 "
        "246:4=1999 250:1=1 251:1=1 252:1=1 253:4=2 257:1=1 258:1=1 259:4=110000 263:1=1 "
        "264:4=202101 273:4=6 277:1=1 278:8=0x1111111111 286:1=1 287:8=0x2222222222 295:1=1 "
        "296:8=0x3333333333 304:1=1 305:4=10 309:1=1 310:1=1 311:8=0x4444444444"));
    ASSERT_EQ(reading.result, KM_ERROR_OK);
    EXPECT_THAT(reading.hw,
                ElementsAre("20000001=2", "20000001=3", "20000004=20", "20000005=a", "20000005=b",
                            "20000005=c", "20000005=d", "20000005=e", "20000006=3", "20000006=5",
                            "a00001f6=f1f2f3f4f5f6f7f8", "10000002=3", "30000003=100", "70000007=2",
                            "30000008=60", "1000000a=1", "500000c8=102030405060708", "700000ca=1",
                            "1000012d=9", "30000193=7", "30000194=8", "700001f4=1", "700001f7=1",
                            "100001f8=3", "300001f9=1", "70000258=1", "7000025a=1", "100002be=2",
                            "700002bf=1", "300002c1=1adb0", "300002c2=31575"));
    EXPECT_THAT(reading.sw,
                ElementsAre("60000190=1111111111", "60000191=2222222222", "60000192=3333333333",
                            "300001f5=a", "700001fa=1", "600002bd=4444444444"));
}

TEST(KeyBlobReader, ReadsTheFieldsThatVersion41Added) {
    const Reading reading(
        blobOf(345, 4, 1,
               "24:4=7 245:1=1 246:4=1999 257:1=1 273:4=1 319:4=2 323:1=1 324:1=1 325:4=0xaaaa "
               "329:1=1 330:4=0xbbbb 334:1=1 344:1=3"));
    ASSERT_EQ(reading.result, KM_ERROR_OK);
    EXPECT_THAT(reading.hw, ElementsAre("300001f9=7cf", "7000012f=1", "300002cf=bbbb",
                                        "300002ce=aaaa", "10000130=2", "700001fb=1", "700001fc=1"));
    EXPECT_THAT(reading.sw, ElementsAre("700001fd=3"));
}

// Which fields there are, and how long the blob must be for them.
TEST(KeyBlobReader, FollowsTheVersionAndTheRule) {
    constexpr auto kRead = EarlyBootRule::kRead;
    constexpr auto kIgnore = EarlyBootRule::kIgnore;
    const Lines none, type = {"10000130=0"}, both = {"10000130=0", "70000131=1"};
    const struct {
        uint32_t major, minor;
        EarlyBootRule rule;
        size_t shortest;
        Lines hw;
    } cases[] = {
        {3, 9, kRead, 319, none}, {4, 0, kRead, 319, none},   {4, 1, kRead, 345, type},
        {4, 2, kRead, 345, type}, {4, 3, kRead, 345, type},   {4, 4, kRead, 352, both},
        {5, 0, kRead, 352, both}, {4, 4, kIgnore, 345, type}, {5, 0, kIgnore, 345, type},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.major << "." << c.minor << ", " << c.shortest);
        const std::string fields = "351:1=1 24:4=" + std::to_string(c.hw.size());
        const Reading reading(blobOf(c.shortest, c.major, c.minor, fields), c.rule);
        EXPECT_EQ(reading.result, KM_ERROR_OK);
        EXPECT_EQ(reading.hw, c.hw);
        EXPECT_NE(reading.characteristics.hw_enforced.params, nullptr);
        EXPECT_NE(reading.characteristics.sw_enforced.params, nullptr);
        const Reading cut(blobOf(c.shortest - 1, c.major, c.minor, fields), c.rule);
        EXPECT_EQ(cut.result, KM_ERROR_INVALID_KEY_BLOB);
    }
    EXPECT_EQ(Reading({}).result, KM_ERROR_INVALID_KEY_BLOB);
    EXPECT_EQ(readCharacteristics({nullptr, 0}, kRead, nullptr), KM_ERROR_OK);
}

TEST(KeyBlobReader, RefusesCountsThatDoNotAgree) {
    const struct {
        uint32_t minor;
        const char* fields;
        const char *mismatch, *declared, *written;
    } cases[] = {
        {1, "", "teeparams mismatch", "teeParamsCount: 0", "teeParamsCountTemp: 1"},
        {0, "24:4=0xffffffff 52:1=1", "teeparams mismatch", "teeParamsCount: 4294967295",
         "teeParamsCountTemp: 1"},
        {0, "24:4=6 48:4=6", "teeparams mismatch", "teeParamsCount: 6", "teeParamsCountTemp: 6"},
        {0, "24:4=1 235:4=0xffffffff", "teeparams mismatch", "teeParamsCount: 1",
         "teeParamsCountTemp: 4294967295"},
        {0, "24:4=1 52:1=1 273:4=2 309:1=1", "swParamsCount mismatch", "swParamsCount: 2",
         "swParamsCountTemp: 1"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.fields);
        lumo::test::LogCapture log;
        const Reading reading(blobOf(345, 4, c.minor, c.fields));
        EXPECT_EQ(reading.result, KM_ERROR_INVALID_ARGUMENT);
        EXPECT_THAT(log.texts(), ElementsAre(c.mismatch, c.declared, c.written));
        EXPECT_EQ(log.lines()[0].tag, "KeyMasterHalDevice");
        EXPECT_EQ(log.lines()[0].priority, 6);
        // The hardware-enforced set stays with the caller when only the other one is bad.
        EXPECT_EQ(reading.characteristics.hw_enforced.params != nullptr, c.mismatch[0] == 's');
        EXPECT_EQ(reading.characteristics.sw_enforced.params, nullptr);
    }
}

}  // namespace
