// What begin refuses, and which of several faults it names.
#include "OperationTest.h"

namespace lumo::test {
namespace {

constexpr auto kOk = KM_ERROR_OK;

TEST(CheckPurpose, AsksTheAlgorithmBeforeTheKey) {
    constexpr auto kNo = KM_ERROR_UNSUPPORTED_PURPOSE;
    constexpr auto kUnlisted = KM_ERROR_INCOMPATIBLE_PURPOSE;
    // For a key that lists no purpose. Columns: encrypt, decrypt, sign, verify, reserved, wrap.
    const struct {
        uint32_t algorithm;
        keymaster_error_t expected[6];
    } rows[] = {
        {KM_ALGORITHM_RSA, {kOk, kUnlisted, kUnlisted, kOk, kNo, kNo}},
        {KM_ALGORITHM_EC, {kNo, kNo, kUnlisted, kOk, kNo, kNo}},
        {KM_ALGORITHM_AES, {kUnlisted, kUnlisted, kNo, kNo, kNo, kNo}},
        {KM_ALGORITHM_TRIPLE_DES, {kUnlisted, kUnlisted, kNo, kNo, kNo, kNo}},
        {KM_ALGORITHM_HMAC, {kNo, kNo, kUnlisted, kUnlisted, kNo, kNo}},
    };
    for (const auto& row : rows) {
        for (uint32_t purpose = 0; purpose < 6; ++purpose) {
            SCOPED_TRACE(testing::Message() << row.algorithm << " purpose " << purpose);
            const auto check = [&](const ParamSet& listed) {
                return errorOf([&] { checkPurpose(purpose, testKey(row.algorithm, {}, listed)); });
            };
            const keymaster_error_t expected = row.expected[purpose];
            EXPECT_EQ(check({}), expected);
            EXPECT_EQ(check({intParam(KM_TAG_PURPOSE, purpose)}), expected == kNo ? kNo : kOk);
        }
    }
}

struct BeginCase {
    const char* name;
    uint32_t purpose;
    ParamSet params;
    keymaster_error_t expected;
    keymaster_security_level_t level = kTee;
};

void checkBegin(const OpenedKey& key, const std::vector<BeginCase>& cases) {
    for (const BeginCase& c : cases) {
        EXPECT_EQ(errorOf([&] { begin(c.purpose, key, c.params, c.level); }), c.expected) << c.name;
    }
}

constexpr auto kNoPadding = KM_ERROR_UNSUPPORTED_PADDING_MODE;
constexpr auto kOtherPadding = KM_ERROR_INCOMPATIBLE_PADDING_MODE;
constexpr auto kNoDigest = KM_ERROR_UNSUPPORTED_DIGEST;
constexpr auto kOtherDigest = KM_ERROR_INCOMPATIBLE_DIGEST;
constexpr auto kNoMacLength = KM_ERROR_UNSUPPORTED_MAC_LENGTH;
constexpr auto kNoMode = KM_ERROR_UNSUPPORTED_BLOCK_MODE;
constexpr auto kOtherMode = KM_ERROR_INCOMPATIBLE_BLOCK_MODE;

TEST(Begin, RsaChecksPaddingThenDigest) {
    const Param bare = padding(KM_PAD_NONE);
    const Param pss = padding(KM_PAD_RSA_PSS);
    const Param oaep = padding(KM_PAD_RSA_OAEP);
    const Param pkcs1 = padding(KM_PAD_RSA_PKCS1_1_5_SIGN);
    const Param pkcs7 = padding(KM_PAD_PKCS7);
    const Param none = digest(KM_DIGEST_NONE);
    const Param md5 = digest(KM_DIGEST_MD5);
    const Param sha256 = digest(KM_DIGEST_SHA_2_256);
    const Param sha512 = digest(KM_DIGEST_SHA_2_512);
    const auto pair = makeRsaKey(1024, 65537);
    const OpenedKey key = testKey(KM_ALGORITHM_RSA, encodePrivateKey(pair.get()),
                                  {bare, pss, oaep, pkcs7, none, sha256, sha512, digest(7)});
    const std::vector<BeginCase> cases = {
        {"nothing", kSign, {}, kNoPadding},
        {"padding twice", kSign, {pss, pss, sha256}, kNoPadding},
        {"unsuitable, though listed", kEncrypt, {pkcs7}, kNoPadding},
        {"OAEP to sign", kSign, {oaep, sha256}, kNoPadding},
        {"PSS to encrypt", kEncrypt, {pss, sha256}, kNoPadding},
        {"more than 32 bits", kSign, {padding((uint64_t{1} << 32) + 3), sha256}, kNoPadding},
        {"unlisted, before the digest", kSign, {pkcs1}, kOtherPadding},
        {"unlisted to verify", kVerify, {pkcs1, sha256}, kOk},
        {"no digest", kSign, {pss}, kNoDigest},
        {"two digests", kVerify, {pss, sha256, none}, kNoDigest},
        {"unknown, though listed", kSign, {pss, digest(7)}, kNoDigest},
        {"unlisted", kSign, {pss, md5}, kOtherDigest},
        {"unlisted to verify", kVerify, {pss, md5}, kOk},
        {"PSS without hashing", kSign, {pss, none}, kOtherDigest},
        {"OAEP without hashing", kEncrypt, {oaep, none}, kOtherDigest},
        {"OAEP without digest", kDecrypt, {oaep}, kNoDigest},
        {"PSS too big", kSign, {pss, sha512}, kOtherDigest},
        {"OAEP too big", kEncrypt, {oaep, sha512}, kOtherDigest},
        {"bare with hashing", kSign, {bare, sha256}, kOtherDigest},
        {"bare decryption needs none", kDecrypt, {bare}, kOk},
        {"StrongBox", kVerify, {pkcs1, sha512}, kNoDigest, kStrongBox},
        {"StrongBox, SHA-256", kSign, {pss, sha256}, kOk, kStrongBox},
    };
    checkBegin(key, cases);
}

TEST(Begin, EcNeedsOneDigest) {
    const auto pair = makeEcKey(KM_EC_CURVE_P_256);
    const OpenedKey key =
        testKey(KM_ALGORITHM_EC, encodePrivateKey(pair.get()), {digest(4), digest(1)});
    const std::vector<BeginCase> cases = {
        {"none", kSign, {}, kNoDigest},
        {"repeated", kSign, {digest(4), digest(4)}, kNoDigest},
        {"MD5, though listed", kSign, {digest(1)}, kNoDigest},
        {"unlisted", kSign, {digest(0)}, kOtherDigest},
        {"unlisted to verify", kVerify, {digest(6)}, kOk},
        {"StrongBox", kVerify, {digest(2)}, kNoDigest, kStrongBox},
    };
    checkBegin(key, cases);
}

TEST(Begin, CiphersCheckModePaddingMacLengthAndNonce) {
    const Param ecb = mode(KM_MODE_ECB);
    const Param cbc = mode(KM_MODE_CBC);
    const Param ctr = mode(KM_MODE_CTR);
    const Param gcm = mode(KM_MODE_GCM);
    const Param none = padding(KM_PAD_NONE);
    const Param pkcs7 = padding(KM_PAD_PKCS7);
    const Param pss = padding(KM_PAD_RSA_PSS);
    const Param iv = nonce(Bytes(12));
    const std::vector<BeginCase> aes_cases = {
        {"nothing", kEncrypt, {}, kNoMode},
        {"two modes", kEncrypt, {ecb, ctr, none}, kNoMode},
        {"unknown mode", kEncrypt, {mode(4), none}, kNoMode},
        {"unlisted mode, before the padding", kEncrypt, {cbc}, kOtherMode},
        {"no padding", kEncrypt, {ecb}, kNoPadding},
        {"two paddings", kEncrypt, {ecb, none, pkcs7}, kNoPadding},
        {"unsuitable, though listed", kEncrypt, {ecb, pss}, kNoPadding},
        {"unlisted", kDecrypt, {ecb, pkcs7}, kOtherPadding},
        {"no MAC length, before the nonce", kEncrypt, {gcm, none, iv}, KM_ERROR_MISSING_MAC_LENGTH},
        {"136 bits", kEncrypt, {gcm, none, macLength(136)}, kNoMacLength},
        {"100 bits", kDecrypt, {gcm, none, macLength(100), iv}, kNoMacLength},
        {"104 bits", kEncrypt, {gcm, none, macLength(104)}, KM_ERROR_INVALID_MAC_LENGTH},
        {"104 bits", kDecrypt, {gcm, none, macLength(104), iv}, KM_ERROR_INVALID_MAC_LENGTH},
        {"nonce, also a wrong one", kEncrypt, {ctr, none, iv}, KM_ERROR_CALLER_NONCE_PROHIBITED},
        {"nonce to decrypt with", kDecrypt, {gcm, none, macLength(112), iv}, kOk},
        {"wrong nonce", kDecrypt, {ctr, none, iv}, KM_ERROR_INVALID_NONCE},
        {"no nonce", kDecrypt, {ctr, none}, KM_ERROR_MISSING_NONCE},
        {"ECB needs none", kDecrypt, {ecb, none, macLength(7)}, kOk},
    };
    checkBegin(testKey(KM_ALGORITHM_AES, Bytes(16), {ecb, ctr, gcm, none, pss, minMac(112)}),
               aes_cases);
    const std::vector<BeginCase> pkcs7_cases = {
        {"unlisted none", kEncrypt, {ctr, none}, kOtherPadding},
        {"padded CTR", kEncrypt, {ctr, pkcs7}, kOtherPadding},
        {"padded GCM", kEncrypt, {gcm, pkcs7}, kOtherPadding},
    };
    checkBegin(testKey(KM_ALGORITHM_AES, Bytes(16), {ctr, gcm, pkcs7}), pkcs7_cases);
    const std::vector<BeginCase> des_cases = {
        {"CTR, though listed", kEncrypt, {ctr, none}, kNoMode},
        {"GCM, though listed", kEncrypt, {gcm, none}, kNoMode},
        {"unlisted", kDecrypt, {ecb, none}, kOtherMode},
        {"wrong nonce", kDecrypt, {cbc, none, iv}, KM_ERROR_INVALID_NONCE},
    };
    checkBegin(testKey(KM_ALGORITHM_TRIPLE_DES, Bytes(24), {cbc, ctr, gcm, none}), des_cases);
}

TEST(Begin, HmacChecksDigestAndMacLength) {
    const Param sha256 = digest(KM_DIGEST_SHA_2_256);
    const std::vector<BeginCase> cases = {
        {"no digest", kSign, {macLength(128)}, kNoDigest},
        {"two digests", kSign, {sha256, digest(2)}, kNoDigest},
        {"another", kSign, {digest(2)}, kOtherDigest},
        {"none", kVerify, {digest(0)}, kOtherDigest},
        {"no length", kSign, {sha256}, KM_ERROR_MISSING_MAC_LENGTH},
        {"no length to verify", kVerify, {sha256}, kOk},
        {"264 bits", kSign, {sha256, macLength(264)}, kNoMacLength},
        {"264 bits to verify", kVerify, {sha256, macLength(264)}, kNoMacLength},
        {"130 bits", kSign, {sha256, macLength(130)}, kNoMacLength},
        {"120 bits", kSign, {sha256, macLength(120)}, KM_ERROR_INVALID_MAC_LENGTH},
        {"128 bits", kSign, {sha256, macLength(128)}, kOk, kStrongBox},
    };
    checkBegin(testKey(KM_ALGORITHM_HMAC, Bytes(16), {sha256, minMac(128)}), cases);
}

}  // namespace
}  // namespace lumo::test
