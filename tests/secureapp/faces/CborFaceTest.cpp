// CBOR requests and answers, byte by byte.
#include "App.h"

namespace lumo::test {
namespace {

// P-256, sign and verify, SHA-256, no authentication.
const char kGenerateEc[] =
    "a7 16 06 1a10000002 03 1a30000003 190100 1a20000001 02 1a20000001 03 1a20000005 04"
    " 1a700001f7 f5";
const char kGenerateAesGcm[] =
    "a9 16 08 1a10000002 1820 1a30000003 1880 1a20000001 00 1a20000001 01 1a20000004 1820"
    " 1a20000006 01 1a30000008 1880 1a700001f7 f5";

// An answer of one entry without its map head is the same entry of a later request.
Bytes entryOf(const Bytes& answer) {
    EXPECT_EQ(answer.at(0), 0xA1);
    return slice(answer, 1, SIZE_MAX);
}

// The value of a byte string of 256 to 65535 bytes, or of 24 to 255, behind a head of `label`.
Bytes bytesBehind(const Bytes& answer, const std::string& label) {
    const Bytes head = hex(label);
    EXPECT_EQ(toHex(slice(answer, 0, head.size())), toHex(head));
    const uint8_t kind = answer.at(head.size());
    const size_t length_bytes = kind == 0x58 ? 1 : 2;
    EXPECT_TRUE(kind == 0x58 || kind == 0x59) << toHex(answer);
    size_t length = 0;
    for (size_t i = 0; i < length_bytes; ++i) length = length << 8 | answer.at(head.size() + 1 + i);
    const Bytes value = slice(answer, head.size() + 1 + length_bytes, SIZE_MAX);
    EXPECT_EQ(value.size(), length);
    return value;
}

TEST(CborFace, SignsWithAGeneratedEcKey) {
    App phone("cbor");
    phone.configureByCbor();
    const Bytes generated = phone.sendCbor(0x2108, kGenerateEc);
    const Bytes blob = bytesBehind(generated, "a1 17");
    EXPECT_EQ(toHex(slice(blob, 0, 4)), "444b4d4b");

    const Bytes exported =
        phone.sendCbor(0x210C, hex("a3 16 00") + entryOf(generated) + hex("1818 00"));
    const Bytes public_key = bytesBehind(exported, "a1 1824");

    // The client's one parameter, then the purpose.
    const Bytes begun =
        phone.sendCbor(0x210F, hex("a4 16 02 1a20000005 04 1a20000001 02") + entryOf(generated));
    EXPECT_EQ(toHex(slice(begun, 0, 4)), "a118221b");
    const Bytes handle = entryOf(begun);

    EXPECT_EQ(toHex(phone.sendCbor(0x2111, hex("a2") + handle + hex("1823 43 616263"))),
              "a1182503");
    const Bytes finished = phone.sendCbor(0x2112, hex("a2") + handle + hex("1823 43 646566"));
    EXPECT_TRUE(verifies(public_key, hex("616263646566"), bytesBehind(finished, "a1 1824")));

    EXPECT_EQ(phone.cbor(0x2112, hex("a1") + handle).error, KM_ERROR_INVALID_OPERATION_HANDLE);
    EXPECT_EQ(phone.sendCbor(0x210D, hex("a1") + entryOf(generated)), Bytes());
}

TEST(CborFace, VerifyTakesParametersInputAndSignature) {
    App phone("cbor");
    phone.configureByCbor();
    const Bytes key = entryOf(phone.sendCbor(0x2108, kGenerateEc));
    const auto begin = [&](const char* purpose) {
        return entryOf(
            phone.sendCbor(0x210F, hex("a4 16 02 1a20000005 04 1a20000001") + hex(purpose) + key));
    };
    // An auth token among the parameters, as every client sends it: byte strings have negative
    // labels.
    const Bytes token = hex("16 01 3a6ffffc15 5845") + Bytes(69, 0);
    const Bytes signature = bytesBehind(
        phone.sendCbor(0x2112, hex("a4") + begin("02") + token + hex("1823 41 78")), "a1 1824");
    const Bytes signature_entry =
        hex("1826 58") + Bytes{static_cast<uint8_t>(signature.size())} + signature;
    EXPECT_EQ(toHex(phone.sendCbor(
                  0x2112, hex("a5") + begin("03") + token + hex("1823 41 78") + signature_entry)),
              "a0");
    EXPECT_EQ(
        phone.cbor(0x2112, hex("a3") + begin("03") + hex("1823 41 79") + signature_entry).error,
        KM_ERROR_VERIFICATION_FAILED);
}

TEST(CborFace, NonceOfBeginHasAPositiveLabel) {
    App phone("cbor");
    phone.configureByCbor();
    const Bytes key = entryOf(phone.sendCbor(0x2108, kGenerateAesGcm));
    const Bytes begun = phone.sendCbor(
        0x210F, hex("a6 16 04 1a20000004 1820 1a20000006 01 1a300003eb 1880 1a20000001 00") + key);
    EXPECT_EQ(toHex(slice(begun, 0, 9)), "a316011a900003e94c");
    EXPECT_EQ(toHex(slice(begun, 21, 3)), "18221b");
    // An update that gives nothing back yet, and one that does.
    const Bytes handle = slice(begun, 21, SIZE_MAX);
    const Bytes updated =
        phone.sendCbor(0x2111, hex("a2") + handle + hex("1823 50") + Bytes(16, 'x'));
    EXPECT_TRUE(toHex(updated) == "a1182510" || toHex(slice(updated, 0, 4)) == "a2182450");
    EXPECT_EQ(phone.sendCbor(0x2113, hex("a1") + handle), Bytes());
}

TEST(CborFace, AgreesOnTheHmacKey) {
    for (const auto level : {kTee, kStrongBox}) {
        App phone("cbor", level);
        const bool strongbox = level == kStrongBox;
        const Bytes own = phone.sendCbor(strongbox ? 0x2706 : 0x220E, "");
        ASSERT_EQ(own.size(), 1U + 2 * (2 + 2 + 32));
        EXPECT_EQ(toHex(slice(own, 0, 5)), "a218295820");
        EXPECT_EQ(toHex(slice(own, 37, 4)), "182a5820");
        const Bytes seed = slice(own, 5, 32);
        EXPECT_EQ(seed == Bytes(32, 0), !strongbox);

        const Bytes records = Bytes(32, 0) + Bytes(32, 7) + seed + slice(own, 41, 32);
        const uint32_t compute = strongbox ? 0x2707 : 0x220F;
        const Bytes check = phone.sendCbor(compute, hex("a1 182b 5880") + records);
        EXPECT_EQ(toHex(slice(check, 0, 5)), "a1182c5820");
        EXPECT_EQ(check.size(), 37U);

        Bytes strange = records;
        strange.back() ^= 1;
        EXPECT_EQ(phone.cbor(compute, hex("a1 182b 5880") + strange).error,
                  KM_ERROR_INVALID_ARGUMENT);
        EXPECT_EQ(phone.cbor(compute, hex("a1 182b 587f") + slice(records, 1, 127)).error,
                  KM_ERROR_INVALID_ARGUMENT);
    }
}

TEST(CborFace, AttestsWithDatesAndUpgrades) {
    App phone("cbor");
    phone.configureByCbor();
    const Bytes key = entryOf(phone.sendCbor(0x2108, kGenerateEc));
    const Bytes dates =
        hex("1827 89 00 00 00 01 01 1907b2 20 20 20"
            " 1828 89 183b 183b 17 181f 0c 1907b1 20 20 20");
    // Challenge and application id.
    const Bytes params = hex("16 02 3a6ffffd3b 42 6363 3a6ffffd3a 42 6964");
    const Bytes chain = phone.sendCbor(0x2115, hex("a6") + params + key + dates);
    // The count, then certificates in order.
    const uint8_t count = chain.at(3);
    EXPECT_GE(count, 2);
    EXPECT_EQ(chain.at(0), 0xA0 + 1 + count);
    EXPECT_EQ(toHex(slice(chain, 1, 2)), "1820");
    EXPECT_EQ(toHex(slice(chain, 4, 3)), "182159");

    // Current already: an empty blob.
    EXPECT_EQ(toHex(phone.sendCbor(0x2114, hex("a2 16 00") + key)), "a11740");
}

TEST(CborFace, RefusesWhatDiffersFromTheMessage) {
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
        {"a huge map", 0x2108, "bbffffffffffffffff 16 00"},
        {"a huge byte string", 0x210D, "a1 17 5bffffffffffffffff 00"},
        {"a huge date array", 0x2115, "a4 16 00 17 40 1827 9bffffffffffffffff 00 1828 80"},
        {"a byte behind the map", 0x2108, "a1 16 00 00"},
        {"an entry too many", 0x2108, "a2 16 00 17 40"},
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
        {"null", 0x210D, "a1 17 f6"},
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
        EXPECT_EQ(phone.cbor(test.command, hex(test.request)).error, KM_ERROR_INVALID_ARGUMENT)
            << test.what;
    }
    // The like of them, as they should be, reach the keymaster.
    EXPECT_EQ(phone.cbor(0x210D, hex("a1 17 40")).error, KM_ERROR_OK);
    EXPECT_EQ(phone.cbor(0x211A, hex("a1 182e f5")).error, KM_ERROR_OK);
    EXPECT_EQ(phone.cbor(0x220B, hex("a1 182d f4")).error, KM_ERROR_OK);
}

TEST(CborFace, AnswersOnlyItsOwnCommands) {
    struct {
        const char* profile;
        keymaster_security_level_t level;
        uint32_t command;
        bool known;
    } const cases[] = {
        {"cbor", kTee, 0x2119, true},
        {"cbor", kStrongBox, 0x2119, false},
        {"cbor", kTee, 0x211C, false},
        {"cbor", kStrongBox, 0x211C, true},
        {"cbor", kTee, 0x2508, false},
        {"cbor", kStrongBox, 0x2108, false},
        {"cbor", kTee, 0x210E, true},
        {"cbor", kStrongBox, 0x210E, true},
        {"cbor", kStrongBox, 0x250E, false},
        {"cbor", kTee, 0x2109, false},
        {"cbor", kTee, 0, false},
        {"cbor", kTee, 0x108, false},
        {"legacy-4", kTee, 0x2119, true},
        {"legacy-4", kStrongBox, 0x211C, true},
        {"legacy-3", kTee, 0x210E, false},
        {"legacy-3", kTee, 0x2108, false},
    };
    for (const auto& test : cases) {
        App phone(test.profile, test.level);
        const keymaster_error_t error = phone.cbor(test.command, {}).error;
        EXPECT_EQ(error != KM_ERROR_UNIMPLEMENTED, test.known)
            << test.profile << " " << test.level << " " << test.command << ": " << error;
    }
}

TEST(SecureApp, TellsTheStorageFailureInWords) {
    App phone("cbor");
    phone.configureByCbor();
    EXPECT_EQ(phone.app.lastStateFailure(), "");
    phone.own.broken = true;
    phone.shared.broken = true;
    EXPECT_EQ(phone.cbor(0x220B, hex("a1 182d f4")).error, KM_ERROR_SECURE_HW_ACCESS_DENIED);
    EXPECT_EQ(phone.app.lastStateFailure(), "the test's storage is broken");
}

}  // namespace
}  // namespace lumo::test
