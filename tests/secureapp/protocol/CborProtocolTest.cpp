// CBOR requests that differ from the message, byte by byte.
#include "SecureAppUnderTest.h"
#include "secureapp/protocol/CborWriter.h"

namespace lumo::test {
namespace {

TEST(CborProtocol, RefusesWhatDiffersFromTheMessage) {
    App phone("cbor");
    phone.configureByCbor();
    struct {
        const char* what;
        uint32_t command;
        const char* request;
    } const cases[] = {
        {"no body", 0x2108, ""},
        {"no map", 0x2108, "81 00"},
        {"an indefinite map", 0x2108, "bf 16 00 ff"},
        {"a map count not in its shortest form", 0x2108, "b801 16 00"},
        {"a label not in its shortest form", 0x2108, "a1 1816 00"},
        {"a count not in its shortest form", 0x2108, "a1 16 1800"},
        {"a count that promises more than the map", 0x2108, "a1 16 01"},
        {"a huge count", 0x2108, "a1 16 1bffffffffffffffff"},
        {"a huge byte string", 0x210D, "a1 17 5bffffffffffffffff 00"},
        {"a huge date array", 0x2115, "a4 16 00 17 40 1827 9bffffffffffffffff 00 1828 80"},
        {"a byte behind the map", 0x2108, "a1 16 00 00"},
        {"an entry too many", 0x210C, "a4 16 00 17 40 1818 00 17 40"},
        {"a byte behind the versions of the boot", 0x2116,
         "a4 16 03 1a300002c1 1a0001adb0 1a300002c2 1a0003151c 1a300002ce 1a01343ef5 00"},
        {"another order", 0x210C, "a3 17 40 16 00 1818 00"},
        {"an optional entry too early", 0x2111, "a3 1822 01 1823 40 16 00"},
        {"a byte-string tag with a positive label", 0x2108, "a2 16 01 1a90000259 40"},
        {"an integer tag with a negative label", 0x2108, "a2 16 01 3a10000002 03"},
        {"a tag of type 0", 0x2108, "a2 16 01 17 40"},
        {"a tag of type 11", 0x2108, "a2 16 01 3a4fffffff 00"},
        {"a label of 33 bits", 0x2108, "a2 16 01 1b0000000110000002 03"},
        {"a boolean that is false", 0x2108, "a2 16 01 1a700001f7 f4"},
        {"a boolean as a number", 0x2108, "a2 16 01 1a700001f7 01"},
        {"a 32-bit value of 33 bits", 0x2108, "a2 16 01 1a30000003 1b0000000100000000"},
        {"a negative enumeration", 0x2108, "a2 16 01 1a10000002 22"},
        {"a 64-bit value above the signed range", 0x2108, "a2 16 01 1a500000c8 1b8000000000000000"},
        {"text for bytes", 0x210D, "a1 17 61 78"},
        {"a tagged item", 0x210D, "a1 17 c1 40"},
        {"a float", 0x2108, "a1 16 f90000"},
        {"no purpose at the end", 0x210F, "a4 16 02 1a20000001 02 1a20000005 04 17 40"},
        {"no parameter at all in begin", 0x210F, "a2 16 00 17 40"},
        {"a date of eight fields", 0x2115,
         "a4 16 00 17 40 1827 88 00 00 00 01 01 00 20 20 1828 89 00 00 00 01 01 00 20 20 20"},
        {"a flag that asks for the unknown", 0x220B, "a1 182d f5"},
        {"a body where there is none", 0x210E, "a0"},
        {"a flag as a number", 0x211A, "a1 182e 01"},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(phone.cbor(test.command, fromHex(test.request)).error, KM_ERROR_INVALID_ARGUMENT)
            << test.what;
    }
    // The like of them, as they should be, reach the keymaster.
    EXPECT_EQ(phone.cbor(0x210D, fromHex("a1 17 40")).error, KM_ERROR_OK);
    EXPECT_EQ(phone.cbor(0x211A, fromHex("a1 182e f5")).error, KM_ERROR_OK);
    EXPECT_EQ(phone.cbor(0x220B, fromHex("a1 182d f4")).error, KM_ERROR_OK);
}

TEST(CborProtocol, AnswersOnlyItsOwnCommands) {
    const struct {
        const char* profile;
        keymaster_security_level_t level;
        std::vector<uint32_t> known, unknown;
    } cases[] = {
        {"cbor", kTee, {0x2119, 0x210E}, {0x211C, 0x2508, 0x2109, 0x108, 0}},
        {"cbor", kStrongBox, {0x211C, 0x210E}, {0x2119, 0x2108, 0x250E}},
        {"legacy-4", kTee, {0x2119}, {0x211C}},
        {"legacy-4", kStrongBox, {0x211C}, {0x2119}},
        {"legacy-3", kTee, {}, {0x210E, 0x2108}},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.profile);
        const auto answer = [&](uint32_t command) {
            return App(test.profile, test.level).cbor(command, {}).error;
        };
        for (const uint32_t each : test.known) EXPECT_NE(answer(each), KM_ERROR_UNIMPLEMENTED);
        for (const uint32_t each : test.unknown) EXPECT_EQ(answer(each), KM_ERROR_UNIMPLEMENTED);
    }
}

// Whatever length was expected of a value, the message is as if it had been known.
TEST(CborWriter, FitsTheHeadOfAValueWrittenInPlace) {
    constexpr size_t kSizes[] = {0, 1, 23, 24, 255, 256, 65535, 65536};
    for (const size_t expected : kSizes) {
        for (const size_t size : kSizes) {
            const Bytes value(size, 0x5A);
            secureapp::CborWriter in_place(2), copied(size == 0 ? 1 : 2);
            in_place.bytesIfAny(secureapp::Label::kOutput, expected,
                                [&](Bytes& message) { secureapp::append(message, value); });
            if (size != 0) copied.bytes(secureapp::Label::kOutput, value);
            for (auto* each : {&in_place, &copied}) each->number(secureapp::Label::kConsumed, 7);
            EXPECT_EQ(in_place.finish(), copied.finish()) << size << " for " << expected;
        }
    }
}

TEST(SecureApp, ReportsTheStorageFailure) {
    App phone("cbor");
    phone.configureByCbor();
    phone.own.broken = true;
    phone.shared.broken = true;
    const secureapp::Reply reply = phone.cbor(0x220B, fromHex("a1 182d f4"));
    EXPECT_EQ(reply.error, KM_ERROR_SECURE_HW_ACCESS_DENIED);
    EXPECT_EQ(reply.cause, secureapp::Cause::kStorage);
    EXPECT_EQ(reply.reason, "the test's storage is broken");
}

}  // namespace
}  // namespace lumo::test
