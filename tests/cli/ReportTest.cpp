// What is printed and understood, where no keymaster is needed to see it.

#include <gtest/gtest.h>

#include "Dates.h"
#include "Pem.h"
#include "Report.h"
#include "TagOptions.h"
#include "Vocabulary.h"

namespace lumo::cli {
namespace {

const std::vector<KeyParameter> kParameters = {
    makeEnum(Tag::ALGORITHM, 33),
    makeEnum(Tag::PURPOSE, 5),
    makeEnum(Tag::PURPOSE, 9),
    makeEnum(Tag::PADDING, 4),
    makeLong(Tag::USER_SECURE_ID, UINT64_MAX),
    makeEnum(Tag::USER_AUTH_TYPE, 3),
    makeLong(Tag::ACTIVE_DATETIME, 951782400123),
    makeBool(Tag::EARLY_BOOT_ONLY),
    makeBytes(Tag::APPLICATION_ID, {0x00, 0xAB}),
    makeEnum(static_cast<Tag>(0x30000FFF), 7),
    makeBool(static_cast<Tag>(0x700002BF)),
};

TEST(Describe, UsesPublishedNamesAndKeepsWhatItDoesNotKnow) {
    EXPECT_EQ(toText({{"list", describe(kParameters)}}),
              "list:\n"
              "  ALGORITHM: TRIPLE_DES\n"
              "  PURPOSE: WRAP_KEY, 0x9\n"
              "  PADDING: RSA_PKCS1_1_5_ENCRYPT\n"
              "  USER_SECURE_ID: 0xffffffffffffffff\n"
              "  USER_AUTH_TYPE: PASSWORD+FINGERPRINT\n"
              "  ACTIVE_DATETIME: 2000-02-29T00:00:00.123Z\n"
              "  EARLY_BOOT_ONLY: true\n"
              "  APPLICATION_ID: 00ab\n"
              "  0x30000fff: 7\n"
              "  ROLLBACK_RESISTANT: true\n");
    EXPECT_EQ(describe(kParameters).at("PADDING"), Report({"RSA_PKCS1_1_5_ENCRYPT"}))
        << "a repeatable tag is an array even of one";
}

TEST(Words, AreUnderstoodAsUsualAndAsPublished) {
    const struct {
        Tag tag;
        const char* word;
        std::optional<uint32_t> value;
    } cases[] = {
        {Tag::ALGORITHM, "3des", 33},
        {Tag::ALGORITHM, "TRIPLE_DES", 33},
        {Tag::DIGEST, "SHA256", 4},
        {Tag::DIGEST, "sha_2_256", 4},
        {Tag::PADDING, "pkcs1", 4},
        {Tag::PADDING, "pkcs1-sign", 5},
        {Tag::EC_CURVE, "p224", 0},
        {Tag::USER_AUTH_TYPE, "password+fingerprint", 3},
        {Tag::USER_AUTH_TYPE, "any", 0xFFFFFFFF},
        {Tag::USER_AUTH_TYPE, "password+", std::nullopt},
        {Tag::USER_AUTH_TYPE, "", std::nullopt},
        {Tag::DIGEST, "4", std::nullopt},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(valueOfWord(c.tag, c.word), c.value) << toString(c.tag) << " " << c.word;
    }
}

TEST(NumbersAndDates, AreWhollyReadAndBounded) {
    using Value = std::optional<uint64_t>;
    const std::pair<const char*, Value> numbers[] = {{"0", 0},
                                                     {"0x10", 16},
                                                     {"18446744073709551615", UINT64_MAX},
                                                     {"", {}},
                                                     {"-1", {}},
                                                     {"+1", {}},
                                                     {" 1", {}},
                                                     {"1 ", {}},
                                                     {"0x", {}},
                                                     {"18446744073709551616", {}}};
    for (const auto& [text, value] : numbers)
        EXPECT_EQ(parseNumber(text, UINT64_MAX), value) << text;
    EXPECT_EQ(parseNumber("256", 255), std::nullopt);

    const std::pair<const char*, Value> dates[] = {{"1970-01-02", 86400000},
                                                   {"2000-02-29T23:59:59Z", 951868799000},
                                                   {"2100-03-01", 4107542400000},
                                                   {"9999-12-31T23:59:59Z", 253402300799000},
                                                   {"1234567", 1234567},
                                                   {"2001-02-29", {}},
                                                   {"2000-02-29T23:59:59", {}},
                                                   {"1969-12-31", {}},
                                                   {"2030", {}}};
    for (const auto& [text, value] : dates) EXPECT_EQ(parseDate(text), value) << text;
    EXPECT_EQ(dateText(253402300799999), "9999-12-31T23:59:59.999Z");
    EXPECT_EQ(dateText(UINT64_MAX), "18446744073709551615");
}

TEST(Pem, BreaksLinesAt64Characters) {
    EXPECT_EQ(toPem("CERTIFICATE", Bytes(49, 0)), "-----BEGIN CERTIFICATE-----\n" +
                                                      std::string(64, 'A') +
                                                      "\nAA==\n-----END CERTIFICATE-----\n");
}

}  // namespace
}  // namespace lumo::cli
