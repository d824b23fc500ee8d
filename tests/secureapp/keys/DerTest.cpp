// What the reader takes and refuses, and authorization lists written out by hand.
#include <gtest/gtest.h>

#include "Hex.h"
#include "KeymasterUnderTest.h"
#include "secureapp/crypto/Der.h"
#include "secureapp/keys/AuthorizationList.h"

namespace lumo::secureapp {
namespace {

using namespace test;

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
        {"0285000000000101", {}},        // a length of five bytes
        {"0284ffffffff01", {}},          // longer than what is there
        {"020201", {}},
        {"02", {}},
        {"", {}},
        {"1f020101", {}},          // a long identifier where the short one does
        {"1f80020101", {}},        // an identifier with a leading zero
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
    Bytes padded_length = fromHex("04820080");  // for 128 bytes, 8180
    padded_length.resize(padded_length.size() + 128);
    EXPECT_EQ(errorOf([&] { der::Reader(padded_length).next(); }), KM_ERROR_INVALID_ARGUMENT);
}

TEST(AuthorizationList, ReadsWhatAWrappedKeyMayCarry) {
    // purpose {0, 1}, blockMode {2}, callerNonce, minMacLength 128, rsaPublicExponent 65537,
    // userSecureId {1, 2}, creationDateTime
    const Bytes list = fromHex(
        "303c a1083106020100020101 a4053103020102 a7020500 a80402020080 bf81480502030100 01"
        "bf8376083106020101020102 bf853d0802060174876e8000");
    const ParamSet params = decodeAuthorizationList(list);
    EXPECT_EQ(params.integers(KM_TAG_PURPOSE), (std::vector<uint64_t>{0, 1}));
    EXPECT_TRUE(params.contains(KM_TAG_BLOCK_MODE, KM_MODE_CBC) &&
                params.contains(KM_TAG_CALLER_NONCE));
    EXPECT_EQ(params.integer(KM_TAG_MIN_MAC_LENGTH), 128U);
    EXPECT_EQ(params.integer(KM_TAG_RSA_PUBLIC_EXPONENT), 65537U);
    EXPECT_EQ(params.integers(KM_TAG_USER_SECURE_ID), (std::vector<uint64_t>{1, 2}));
    EXPECT_EQ(params.integer(KM_TAG_CREATION_DATETIME), 1600000000000U);
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
             "300abf80854105020301adb0",  // a tag number with a leading zero
             "300aa306020120",            // longer than what is there
         }) {
        EXPECT_EQ(errorOf([&] { decodeAuthorizationList(fromHex(list)); }),
                  KM_ERROR_INVALID_ARGUMENT)
            << list;
    }
}

}  // namespace
}  // namespace lumo::secureapp
