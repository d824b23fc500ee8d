#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cinttypes>
#include <cstring>

#include "BlobFields.h"
#include "KeyBlobReader.h"
#include "LogCapture.h"

namespace {

using keymasterdevice::EarlyBootRule;
using lumo::test::BlobField;
using lumo::test::blobOf;
using testing::ElementsAre;
using testing::IsEmpty;
using Lines = std::vector<std::string>;

// "tag=value" in hexadecimal for each entry, in order.
Lines entriesOf(const keymaster_key_param_set_t& set) {
    Lines lines;
    for (size_t i = 0; i < set.length; ++i) {
        const keymaster_key_param_t& param = set.params[i];
        uint64_t value = param.integer;
        const uint32_t type = static_cast<uint32_t>(param.tag) >> 28;
        if (type == 5 || type == 6 || type == 10) value = param.long_integer;
        if (type == 7) {
            uint8_t byte = 0;  // a boolean may hold any byte
            std::memcpy(&byte, &param.boolean, 1);
            value = byte;
        }
        char line[64];
        snprintf(line, sizeof(line), "%08x=%" PRIx64, static_cast<unsigned>(param.tag), value);
        lines.push_back(line);
    }
    return lines;
}

struct Reading {
    explicit Reading(const std::vector<uint8_t>& blob, EarlyBootRule rule = EarlyBootRule::kRead) {
        result = readCharacteristics({blob.data(), blob.size()}, rule, &characteristics);
        hw = entriesOf(characteristics.hw_enforced);
        sw = entriesOf(characteristics.sw_enforced);
    }
    Reading(const Reading&) = delete;
    ~Reading() { keymaster_free_characteristics(&characteristics); }

    keymaster_key_characteristics_t characteristics = {};
    keymaster_error_t result;
    Lines hw;
    Lines sw;
};

// Every field that a version 4.0 blob can have.
std::vector<BlobField> allOldFields() {
    std::vector<BlobField> fields = {
        {24, 4, 31},
        {48, 4, 2},
        {82, 4, 1},
        {118, 4, 5},
        {154, 4, 2},
        {235, 4, 1},
        {28, 4, 2},
        {32, 4, 3},
        {62, 4, 32},
        {86, 4, 10},
        {90, 4, 11},
        {94, 4, 12},
        {98, 4, 13},
        {102, 4, 14},
        {122, 4, 3},
        {126, 4, 5},
        {52, 1, 1},
        {53, 4, 3},
        {57, 1, 0x80},
        {58, 4, 256},
        {158, 1, 2},
        {159, 1, 1},
        {160, 4, 96},
        {164, 1, 1},
        {165, 4, 1},
        {169, 1, 1},
        {178, 1, 1},
        {179, 1, 1},
        {180, 4, 9},
        {184, 1, 1},
        {185, 4, 7},
        {189, 1, 1},
        {190, 4, 8},
        {194, 1, 1},
        {239, 1, 1},
        {240, 1, 1},
        {241, 4, 3},
        {245, 1, 1},
        {246, 4, 1999},
        {250, 1, 1},
        {251, 1, 1},
        {252, 1, 1},
        {253, 4, 2},
        {257, 1, 1},
        {258, 1, 1},
        {259, 4, 110000},
        {263, 1, 1},
        {264, 4, 202101},
        {170, 8, 0x0102030405060708},
        {195, 8, 0xF1F2F3F4F5F6F7F8},
        {273, 4, 6},
        {277, 1, 1},
        {278, 8, 0x1111111111},
        {286, 1, 1},
        {287, 8, 0x2222222222},
        {295, 1, 1},
        {296, 8, 0x3333333333},
        {304, 1, 1},
        {305, 4, 10},
        {309, 1, 1},
        {310, 1, 1},
        {311, 8, 0x4444444444},
    };
    return fields;
}

TEST(KeyBlobReader, ReadsEveryFieldOfTheOldestBlobsInOrder) {
    const Reading reading(blobOf(319, 4, 0, allOldFields()));
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
    const Reading reading(blobOf(345, 4, 1,
                                 {{24, 4, 7},
                                  {245, 1, 1},
                                  {246, 4, 1999},
                                  {257, 1, 1},
                                  {319, 4, 2},
                                  {323, 1, 1},
                                  {324, 1, 1},
                                  {325, 4, 0xAAAA},
                                  {329, 1, 1},
                                  {330, 4, 0xBBBB},
                                  {334, 1, 1},
                                  {273, 4, 1},
                                  {344, 1, 3}}));
    ASSERT_EQ(reading.result, KM_ERROR_OK);
    EXPECT_THAT(reading.hw, ElementsAre("300001f9=7cf", "7000012f=1", "300002cf=bbbb",
                                        "300002ce=aaaa", "10000130=2", "700001fb=1", "700001fc=1"));
    EXPECT_THAT(reading.sw, ElementsAre("700001fd=3"));
}

TEST(KeyBlobReader, TellsEarlyBootOnlyByVersionAndRule) {
    const struct {
        uint32_t major, minor;
        EarlyBootRule rule;
        bool told;
    } cases[] = {
        {4, 0, EarlyBootRule::kRead, false},   {4, 1, EarlyBootRule::kRead, false},
        {4, 2, EarlyBootRule::kRead, false},   {4, 3, EarlyBootRule::kRead, false},
        {4, 4, EarlyBootRule::kRead, true},    {5, 0, EarlyBootRule::kRead, true},
        {4, 4, EarlyBootRule::kIgnore, false}, {5, 0, EarlyBootRule::kIgnore, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.major << "." << c.minor << " told " << c.told);
        const uint64_t count = (c.major > 4 || c.minor > 0 ? 1U : 0U) + (c.told ? 1U : 0U);
        const Reading reading(blobOf(352, c.major, c.minor, {{24, 4, count}, {351, 1, 1}}), c.rule);
        EXPECT_EQ(reading.result, KM_ERROR_OK);
        EXPECT_EQ(reading.hw.size(), count);
        EXPECT_TRUE(!c.told || reading.hw.back() == "70000131=1");
    }
}

TEST(KeyBlobReader, GivesArraysToEmptySets) {
    const Reading reading(blobOf(319, 3, 9, {}));
    EXPECT_EQ(reading.result, KM_ERROR_OK);
    EXPECT_NE(reading.characteristics.hw_enforced.params, nullptr);
    EXPECT_NE(reading.characteristics.sw_enforced.params, nullptr);
    EXPECT_THAT(reading.hw, IsEmpty());
}

TEST(KeyBlobReader, NeedsTheFieldsOfTheBlobsVersion) {
    const struct {
        size_t size;
        uint32_t minor;
        EarlyBootRule rule;
        keymaster_error_t result;
    } cases[] = {
        {0, 0, EarlyBootRule::kRead, KM_ERROR_INVALID_KEY_BLOB},
        {15, 0, EarlyBootRule::kRead, KM_ERROR_INVALID_KEY_BLOB},
        {318, 0, EarlyBootRule::kRead, KM_ERROR_INVALID_KEY_BLOB},
        {319, 0, EarlyBootRule::kRead, KM_ERROR_OK},
        {344, 1, EarlyBootRule::kRead, KM_ERROR_INVALID_KEY_BLOB},
        {345, 3, EarlyBootRule::kRead, KM_ERROR_OK},
        {351, 4, EarlyBootRule::kRead, KM_ERROR_INVALID_KEY_BLOB},
        {345, 4, EarlyBootRule::kIgnore, KM_ERROR_OK},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.size << " bytes, version 4." << c.minor);
        const Reading reading(blobOf(c.size, 4, c.minor, {{24, 4, c.minor > 0 ? 1U : 0U}}), c.rule);
        EXPECT_EQ(reading.result, c.result);
    }
}

TEST(KeyBlobReader, RefusesCountsThatDoNotAgree) {
    const struct {
        const char* name;
        uint32_t minor;
        std::vector<BlobField> fields;
        Lines log;
    } cases[] = {
        {"version 4.1 always has the hardware type",
         1,
         {},
         {"teeparams mismatch", "teeParamsCount: 0", "teeParamsCountTemp: 1"}},
        {"more declared than there",
         0,
         {{24, 4, 0xFFFFFFFF}, {52, 1, 1}},
         {"teeparams mismatch", "teeParamsCount: 4294967295", "teeParamsCountTemp: 1"}},
        {"purposes past their array",
         0,
         {{24, 4, 6}, {48, 4, 6}},
         {"teeparams mismatch", "teeParamsCount: 6", "teeParamsCountTemp: 6"}},
        {"secure ids past the blob",
         0,
         {{24, 4, 1}, {235, 4, 0xFFFFFFFF}},
         {"teeparams mismatch", "teeParamsCount: 1", "teeParamsCountTemp: 4294967295"}},
        {"software entries",
         0,
         {{24, 4, 1}, {52, 1, 1}, {273, 4, 2}, {309, 1, 1}},
         {"swParamsCount mismatch", "swParamsCount: 2", "swParamsCountTemp: 1"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        lumo::test::LogCapture log;
        const Reading reading(blobOf(345, 4, c.minor, c.fields));
        EXPECT_EQ(reading.result, KM_ERROR_INVALID_ARGUMENT);
        EXPECT_EQ(log.texts(), c.log);
        EXPECT_EQ(log.lines().at(0).tag, "KeyMasterHalDevice");
        EXPECT_EQ(log.lines().at(0).priority, 6);
        // The hardware-enforced set stays with the caller when only the other one is bad.
        const bool hw_good = c.log[0] == "swParamsCount mismatch";
        EXPECT_EQ(reading.characteristics.hw_enforced.params != nullptr, hw_good);
        EXPECT_EQ(reading.characteristics.sw_enforced.params, nullptr);
    }
}

TEST(KeyBlobReader, LooksAtNothingWithoutAPlaceForTheResult) {
    EXPECT_EQ(readCharacteristics({nullptr, 0}, EarlyBootRule::kRead, nullptr), KM_ERROR_OK);
}

}  // namespace
