// What the reader takes and refuses, and authorization lists written out by hand.
#include <gtest/gtest.h>

#include "Attestation.h"
#include "AuthorizationList.h"
#include "Crypto.h"
#include "Der.h"
#include "Hex.h"
#include "Phone.h"

namespace lumo::secureapp {
namespace {

using test::errorOf;
using test::fromHex;
using test::toHex;

TEST(Der, ReadsNumbersInTheFewestBytesOnly) {
    const struct {
        const char* encoding;
        std::optional<uint64_t> value;
    } cases[] = {
        {"020100", 0},
        {"02017f", 127},
        {"02020080", 128},
        {"020900ffffffffffffffff", UINT64_MAX},
        {"0200", {}},                    // empty
        {"0201ff", {}},                  // negative
        {"0202007f", {}},                // a zero too many
        {"0209010000000000000000", {}},  // more than 64 bits
        {"0a0101", {}},                  // another type
        {"02810101", {}},                // a long length where the short one does
        {"0282000101", {}},              // a length with a leading zero
        {"0280010000", {}},              // indefinite
        {"02850000000001010000", {}},    // a length of five bytes
        {"0284ffffffff01", {}},          // longer than what is there
        {"020201", {}},
        {"02", {}},
        {"", {}},
        {"1f0201", {}},            // a long identifier where the short one does
        {"bf800201", {}},          // an identifier with a leading zero
        {"bfffffffffff7f00", {}},  // a tag number without end
    };
    for (const auto& c : cases) {
        const Bytes encoding = fromHex(c.encoding);
        std::optional<uint64_t> value;
        const keymaster_error_t error =
            errorOf([&] { value = der::Reader(encoding).nextUnsigned(); });
        EXPECT_EQ(value, c.value) << c.encoding;
        EXPECT_EQ(error, c.value ? KM_ERROR_OK : KM_ERROR_INVALID_ARGUMENT) << c.encoding;
    }
}

TEST(Der, WritesLongLengthsAndTagsAsPublished) {
    EXPECT_EQ(toHex(der::item(der::context(705), der::integer(110000))),
              "bf8541050203"
              "01adb0");
    for (const auto& [size, head] :
         {std::pair<size_t, const char*>{127, "047f"}, {143, "04818f"}, {258, "04820102"}}) {
        const Bytes encoded = der::octetString(Bytes(size, 0x61));
        const size_t head_bytes = encoded.size() - size;
        EXPECT_EQ(toHex(ByteView(encoded).sub(0, head_bytes)), head);
        EXPECT_EQ(der::Reader(encoded).next(der::kOctetString).contents.size(), size);
    }
}

TEST(AuthorizationList, ReadsWhatAWrappedKeyMayCarry) {
    // purpose {0, 1}, blockMode {2}, callerNonce, minMacLength 128, rsaPublicExponent 65537,
    // userSecureId {1, 2}, creationDateTime
    const Bytes list = fromHex(
        "303c a1083106020100020101 a4053103020102 a7020500 a80402020080 bf81480502030100 01"
        "bf8376083106020101020102 bf853d0802060174876e8000");
    const ParamSet params = decodeAuthorizationList(list);
    EXPECT_EQ(params.integers(KM_TAG_PURPOSE), (std::vector<uint64_t>{0, 1}));
    EXPECT_TRUE(params.contains(KM_TAG_BLOCK_MODE, KM_MODE_CBC));
    EXPECT_TRUE(params.contains(KM_TAG_CALLER_NONCE));
    EXPECT_EQ(params.integer(KM_TAG_MIN_MAC_LENGTH), 128U);
    EXPECT_EQ(params.integer(KM_TAG_RSA_PUBLIC_EXPONENT), 65537U);
    EXPECT_EQ(params.integers(KM_TAG_USER_SECURE_ID), (std::vector<uint64_t>{1, 2}));
    EXPECT_EQ(params.integer(KM_TAG_CREATION_DATETIME), 1600000000000U);

    for (size_t size = 0; size < list.size(); ++size) {
        EXPECT_EQ(errorOf([&] { decodeAuthorizationList(ByteView(list).sub(0, size)); }),
                  KM_ERROR_INVALID_ARGUMENT)
            << size;
    }
}

TEST(AuthorizationList, BothFormsOfUserSecureIdAreRead) {
    for (const char* list : {"3007bf837603020103",
                             "3009bf83760531030201"
                             "03"}) {
        const ParamSet params = decodeAuthorizationList(fromHex(list));
        EXPECT_EQ(params.integers(KM_TAG_USER_SECURE_ID), std::vector<uint64_t>{3}) << list;
    }
}

TEST(AuthorizationList, RefusesWhatHasNoPlaceInIt) {
    for (const char* list : {
             "3005a903020101",            // number 9 has no meaning
             "3007bf876903020101",        // nor has 1001 for a key
             "3003820120",                // not explicit
             "300aa303020120a203020120",  // falling numbers
             "300aa203020120a203020120",  // the same twice
             "300aa1083106020101020100",  // a set out of order
             "3005a20302012000",          // something behind
             "300aa2080206010000000000",  // 32 bits exceeded
             "3008a2060201200201 20",     // two values
             "3007bf83770301 01ff",       // a boolean where NULL stands
             "300aa306020120",            // longer than what is there
         }) {
        EXPECT_EQ(errorOf([&] { decodeAuthorizationList(fromHex(list)); }),
                  KM_ERROR_INVALID_ARGUMENT)
            << list;
    }
}

KeyDescription describedKey() {
    KeyDescription description;
    description.security_level = KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT;
    description.challenge = fromHex("6368616c6c656e6765");
    description.software = {
        bytesParam(KM_TAG_ATTESTATION_APPLICATION_ID, fromHex("666f6f")),
        intParam(KM_TAG_CREATION_DATETIME, 1600000000000),
        intParam(KM_TAG_USER_ID, 10),
    };
    description.hardware = {
        intParam(KM_TAG_PURPOSE, KM_PURPOSE_VERIFY),
        intParam(KM_TAG_PURPOSE, KM_PURPOSE_SIGN),
        intParam(KM_TAG_ALGORITHM, KM_ALGORITHM_EC),
        intParam(KM_TAG_KEY_SIZE, 256),
        intParam(KM_TAG_DIGEST, KM_DIGEST_SHA_2_256),
        intParam(KM_TAG_EC_CURVE, KM_EC_CURVE_P_256),
        boolParam(KM_TAG_NO_AUTH_REQUIRED),
        intParam(KM_TAG_ORIGIN, KM_ORIGIN_GENERATED),
        intParam(KM_TAG_OS_VERSION, 110000),
        intParam(KM_TAG_OS_PATCHLEVEL, 202012),
        intParam(KM_TAG_VENDOR_PATCHLEVEL, 20201205),
        intParam(KM_TAG_BOOT_PATCHLEVEL, 20201205),
        // Without a field in the schema:
        boolParam(KM_TAG_CALLER_NONCE),
        boolParam(KM_TAG_INCLUDE_UNIQUE_ID),
        intParam(KM_TAG_BLOB_USAGE_REQUIREMENTS, KM_BLOB_STANDALONE),
        intParam(KM_TAG_HARDWARE_TYPE, 1),
        intParam(KM_TAG_MAX_USES_PER_BOOT, 3),
        intParam(KM_TAG_USER_SECURE_ID, 7),
    };
    description.root_of_trust = {
        Bytes(32, 0), false, 2,
        fromHex("000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f")};
    return description;
}

constexpr char kDescription[] =
    "3081d70201040a01010201290a010104096368616c6c656e676504003015bf853d0802060174876e8000"
    "bf8545050403666f6f3081a4a1083106020102020103a203020103a30402020100a5053103020104aa03020101"
    "bf8377020500bf853e03020100bf85404c304a0420000000000000000000000000000000000000000000000000"
    "00000000000000000101000a01020420000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c"
    "1d1e1fbf854105020301adb0bf854205020303151cbf854e06020401343ef5bf854f06020401343ef5";

TEST(KeyDescription, MatchesTheVector) {
    EXPECT_EQ(toHex(encodeKeyDescription(describedKey())), kDescription);
}

TEST(KeyDescription, Version3HasNoFieldOfVersion4) {
    KeyDescription description = describedKey();
    description.hardware.add(boolParam(KM_TAG_EARLY_BOOT_ONLY));
    EXPECT_NE(toHex(encodeKeyDescription(description)).find("bf8231020500"), std::string::npos);

    description.attestation_version = 3;
    description.keymaster_version = 4;
    std::string expected = kDescription;
    expected.replace(expected.find("020104"), 6, "020103");
    expected.replace(expected.find("020129"), 6, "020104");
    EXPECT_EQ(toHex(encodeKeyDescription(description)), expected);
}

TEST(UniqueId, ChangesWithPeriodApplicationAndReset) {
    const Bytes secret(32, 0x42);
    const Bytes application = fromHex("616263");
    const Bytes id = uniqueId(secret, 1600000000000, application, false);
    // HMAC-SHA-256 over the period, 617, the application id and no reset.
    EXPECT_EQ(toHex(id),
              toHex(ByteView(hmacSha256(secret, fromHex("000000000000026961626300"))).sub(0, 16)));
    EXPECT_EQ(uniqueId(secret, 1600000000000 + 86400000, application, false), id) << "a day later";
    EXPECT_NE(uniqueId(secret, 1600000000000 + 2592000000, application, false), id);
    EXPECT_NE(uniqueId(secret, 1600000000000, fromHex("616264"), false), id);
    EXPECT_NE(uniqueId(secret, 1600000000000, application, true), id);
}

}  // namespace
}  // namespace lumo::secureapp
