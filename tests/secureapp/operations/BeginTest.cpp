// What begin refuses, and which of several faults it names.
#include "OperationTest.h"

namespace lumo::test {
namespace {

constexpr uint32_t kPurposes[] = {KM_PURPOSE_ENCRYPT, KM_PURPOSE_DECRYPT,    KM_PURPOSE_SIGN,
                                  KM_PURPOSE_VERIFY,  KM_PURPOSE_DERIVE_KEY, KM_PURPOSE_WRAP};

TEST(CheckPurpose, AsksTheAlgorithmBeforeTheKey) {
    constexpr auto kNo = KM_ERROR_UNSUPPORTED_PURPOSE;
    constexpr auto kNotListed = KM_ERROR_INCOMPATIBLE_PURPOSE;
    // For a key that lists none; columns: encrypt, decrypt, sign, verify, reserved, wrap.
    const struct {
        uint32_t algorithm;
        keymaster_error_t expected[6];
    } rows[] = {
        {KM_ALGORITHM_RSA, {KM_ERROR_OK, kNotListed, kNotListed, KM_ERROR_OK, kNo, kNo}},
        {KM_ALGORITHM_EC, {kNo, kNo, kNotListed, KM_ERROR_OK, kNo, kNo}},
        {KM_ALGORITHM_AES, {kNotListed, kNotListed, kNo, kNo, kNo, kNo}},
        {KM_ALGORITHM_TRIPLE_DES, {kNotListed, kNotListed, kNo, kNo, kNo, kNo}},
        {KM_ALGORITHM_HMAC, {kNo, kNo, kNotListed, kNotListed, kNo, kNo}},
    };
    for (const auto& row : rows) {
        ParamSet all;
        for (const uint32_t purpose : kPurposes) all.add(intParam(KM_TAG_PURPOSE, purpose));
        for (size_t i = 0; i < 6; ++i) {
            const auto check = [&](const ParamSet& listed) {
                return errorOf(
                    [&] { checkPurpose(kPurposes[i], testKey(row.algorithm, {}, listed)); });
            };
            EXPECT_EQ(check({}), row.expected[i]) << row.algorithm << " purpose " << kPurposes[i];
            EXPECT_EQ(check(all), row.expected[i] == kNo ? kNo : KM_ERROR_OK)
                << row.algorithm << " purpose " << kPurposes[i];
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

TEST(Begin, RsaChecksPaddingThenDigest) {
    const OpenedKey key =
        testKey(KM_ALGORITHM_RSA, encodePrivateKey(makeRsaKey(1024, 65537).get()),
                {padding(KM_PAD_RSA_PSS), padding(KM_PAD_PKCS7), padding(KM_PAD_RSA_OAEP),
                 padding(KM_PAD_NONE), digest(KM_DIGEST_SHA_2_256), digest(KM_DIGEST_NONE),
                 digest(KM_DIGEST_SHA_2_512), digest(7)});
    const Param pss = padding(KM_PAD_RSA_PSS);
    const Param oaep = padding(KM_PAD_RSA_OAEP);
    const Param sha256 = digest(KM_DIGEST_SHA_2_256);
    const Param none = digest(KM_DIGEST_NONE);
    checkBegin(
        key,
        {
            {"nothing", KM_PURPOSE_SIGN, {}, KM_ERROR_UNSUPPORTED_PADDING_MODE},
            {"padding twice", KM_PURPOSE_SIGN, {pss, pss}, KM_ERROR_UNSUPPORTED_PADDING_MODE},
            {"PKCS7, listed", KM_PURPOSE_ENCRYPT, {padding(64)}, KM_ERROR_UNSUPPORTED_PADDING_MODE},
            {"OAEP to sign", KM_PURPOSE_SIGN, {oaep, sha256}, KM_ERROR_UNSUPPORTED_PADDING_MODE},
            {"PSS to encrypt", KM_PURPOSE_ENCRYPT, {pss}, KM_ERROR_UNSUPPORTED_PADDING_MODE},
            {"padding of more than 32 bits",
             KM_PURPOSE_SIGN,
             {padding((uint64_t{1} << 32) + KM_PAD_RSA_PSS), sha256},
             KM_ERROR_UNSUPPORTED_PADDING_MODE},
            {"unlisted padding before the digest",
             KM_PURPOSE_SIGN,
             {padding(KM_PAD_RSA_PKCS1_1_5_SIGN)},
             KM_ERROR_INCOMPATIBLE_PADDING_MODE},
            {"unlisted padding to verify",
             KM_PURPOSE_VERIFY,
             {padding(KM_PAD_RSA_PKCS1_1_5_SIGN), sha256},
             KM_ERROR_OK},
            {"no digest", KM_PURPOSE_SIGN, {pss}, KM_ERROR_UNSUPPORTED_DIGEST},
            {"two digests", KM_PURPOSE_VERIFY, {pss, sha256, none}, KM_ERROR_UNSUPPORTED_DIGEST},
            {"unknown digest", KM_PURPOSE_SIGN, {pss, digest(7)}, KM_ERROR_UNSUPPORTED_DIGEST},
            {"unlisted digest", KM_PURPOSE_SIGN, {pss, digest(1)}, KM_ERROR_INCOMPATIBLE_DIGEST},
            {"unlisted to verify", KM_PURPOSE_VERIFY, {pss, digest(1)}, KM_ERROR_OK},
            {"PSS, none", KM_PURPOSE_SIGN, {pss, none}, KM_ERROR_INCOMPATIBLE_DIGEST},
            {"OAEP, none", KM_PURPOSE_ENCRYPT, {oaep, none}, KM_ERROR_INCOMPATIBLE_DIGEST},
            {"OAEP, no digest", KM_PURPOSE_DECRYPT, {oaep}, KM_ERROR_UNSUPPORTED_DIGEST},
            {"PSS too big", KM_PURPOSE_SIGN, {pss, digest(6)}, KM_ERROR_INCOMPATIBLE_DIGEST},
            {"OAEP too big", KM_PURPOSE_ENCRYPT, {oaep, digest(6)}, KM_ERROR_INCOMPATIBLE_DIGEST},
            {"bare, digest", KM_PURPOSE_SIGN, {padding(1), sha256}, KM_ERROR_INCOMPATIBLE_DIGEST},
            {"bare encryption needs none", KM_PURPOSE_DECRYPT, {padding(1)}, KM_ERROR_OK},
            {"SHA-512 on StrongBox",
             KM_PURPOSE_VERIFY,
             {padding(KM_PAD_RSA_PKCS1_1_5_SIGN), digest(6)},
             KM_ERROR_UNSUPPORTED_DIGEST,
             kStrongBox},
            {"SHA-256 on StrongBox", KM_PURPOSE_SIGN, {pss, sha256}, KM_ERROR_OK, kStrongBox},
        });
}

TEST(Begin, EcNeedsOneDigest) {
    const OpenedKey key =
        testKey(KM_ALGORITHM_EC, encodePrivateKey(makeEcKey(KM_EC_CURVE_P_256).get()),
                {digest(KM_DIGEST_SHA_2_256), digest(KM_DIGEST_MD5)});
    checkBegin(
        key, {
                 {"none", KM_PURPOSE_SIGN, {}, KM_ERROR_UNSUPPORTED_DIGEST},
                 {"repeated", KM_PURPOSE_SIGN, {digest(4), digest(4)}, KM_ERROR_UNSUPPORTED_DIGEST},
                 {"MD5, listed", KM_PURPOSE_SIGN, {digest(1)}, KM_ERROR_UNSUPPORTED_DIGEST},
                 {"unlisted", KM_PURPOSE_SIGN, {digest(0)}, KM_ERROR_INCOMPATIBLE_DIGEST},
                 {"unlisted to verify", KM_PURPOSE_VERIFY, {digest(6)}, KM_ERROR_OK},
                 {"SHA-1, StrongBox",
                  KM_PURPOSE_VERIFY,
                  {digest(2)},
                  KM_ERROR_UNSUPPORTED_DIGEST,
                  kStrongBox},
             });
}

TEST(Begin, CiphersCheckModePaddingMacLengthAndNonce) {
    const Param none = padding(KM_PAD_NONE);
    const Param pkcs7 = padding(KM_PAD_PKCS7);
    const OpenedKey aes = testKey(KM_ALGORITHM_AES, Bytes(16),
                                  {mode(KM_MODE_ECB), mode(KM_MODE_CTR), mode(KM_MODE_GCM), none,
                                   minMac(112), padding(KM_PAD_RSA_PSS)});
    const Bytes twelve(12);
    constexpr auto kEncrypt = KM_PURPOSE_ENCRYPT;
    constexpr auto kDecrypt = KM_PURPOSE_DECRYPT;
    const auto gcm = [&](uint64_t bits) {
        return ParamSet{mode(KM_MODE_GCM), none, macLength(bits), nonce(twelve)};
    };
    checkBegin(
        aes,
        {
            {"nothing", kEncrypt, {}, KM_ERROR_UNSUPPORTED_BLOCK_MODE},
            {"two modes", kEncrypt, {mode(1), mode(3), none}, KM_ERROR_UNSUPPORTED_BLOCK_MODE},
            {"unknown mode", kEncrypt, {mode(4), none}, KM_ERROR_UNSUPPORTED_BLOCK_MODE},
            {"unlisted mode first", kEncrypt, {mode(2)}, KM_ERROR_INCOMPATIBLE_BLOCK_MODE},
            {"no padding", kEncrypt, {mode(1)}, KM_ERROR_UNSUPPORTED_PADDING_MODE},
            {"two", kEncrypt, {mode(1), none, pkcs7}, KM_ERROR_UNSUPPORTED_PADDING_MODE},
            {"PSS, listed", kEncrypt, {mode(1), padding(3)}, KM_ERROR_UNSUPPORTED_PADDING_MODE},
            {"unlisted", kDecrypt, {mode(1), pkcs7}, KM_ERROR_INCOMPATIBLE_PADDING_MODE},
            {"no MAC length", kEncrypt, {mode(32), none}, KM_ERROR_MISSING_MAC_LENGTH},
            {"136", kEncrypt, gcm(136), KM_ERROR_UNSUPPORTED_MAC_LENGTH},
            {"100", kDecrypt, gcm(100), KM_ERROR_UNSUPPORTED_MAC_LENGTH},
            {"below, encrypt", kEncrypt, gcm(104), KM_ERROR_INVALID_MAC_LENGTH},
            {"below, decrypt", kDecrypt, gcm(104), KM_ERROR_INVALID_MAC_LENGTH},
            {"nonce of the caller", kEncrypt, gcm(112), KM_ERROR_CALLER_NONCE_PROHIBITED},
            {"prohibition before length",
             kEncrypt,
             {mode(3), none, nonce(twelve)},
             KM_ERROR_CALLER_NONCE_PROHIBITED},
            {"nonce to decrypt with", kDecrypt, gcm(112), KM_ERROR_OK},
            {"12 for CTR", kDecrypt, {mode(3), none, nonce(twelve)}, KM_ERROR_INVALID_NONCE},
            {"no nonce", kDecrypt, {mode(3), none}, KM_ERROR_MISSING_NONCE},
            {"ECB needs none", kDecrypt, {mode(1), none, macLength(7)}, KM_ERROR_OK},
        });

    const OpenedKey pkcs7_only =
        testKey(KM_ALGORITHM_AES, Bytes(16), {mode(KM_MODE_CTR), mode(KM_MODE_GCM), pkcs7});
    checkBegin(pkcs7_only,
               {{"CTR, none", kEncrypt, {mode(3), none}, KM_ERROR_INCOMPATIBLE_PADDING_MODE},
                {"CTR, PKCS7", kEncrypt, {mode(3), pkcs7}, KM_ERROR_INCOMPATIBLE_PADDING_MODE},
                {"GCM, PKCS7", kEncrypt, {mode(32), pkcs7}, KM_ERROR_INCOMPATIBLE_PADDING_MODE}});

    const OpenedKey des =
        testKey(KM_ALGORITHM_TRIPLE_DES, Bytes(24), {mode(KM_MODE_CBC), mode(KM_MODE_CTR), none});
    checkBegin(des, {{"CTR", kEncrypt, {mode(3), none}, KM_ERROR_UNSUPPORTED_BLOCK_MODE},
                     {"ECB", kDecrypt, {mode(1), none}, KM_ERROR_INCOMPATIBLE_BLOCK_MODE},
                     {"12", kDecrypt, {mode(2), none, nonce(twelve)}, KM_ERROR_INVALID_NONCE}});
}

TEST(Begin, HmacChecksDigestAndMacLength) {
    const OpenedKey key =
        testKey(KM_ALGORITHM_HMAC, Bytes(16), {digest(KM_DIGEST_SHA_2_256), minMac(128)});
    const Param sha256 = digest(KM_DIGEST_SHA_2_256);
    const auto length = [&](uint64_t bits) { return ParamSet{sha256, macLength(bits)}; };
    checkBegin(
        key, {
                 {"no digest", KM_PURPOSE_SIGN, {macLength(128)}, KM_ERROR_UNSUPPORTED_DIGEST},
                 {"two", KM_PURPOSE_SIGN, {sha256, digest(2)}, KM_ERROR_UNSUPPORTED_DIGEST},
                 {"other", KM_PURPOSE_SIGN, {digest(2)}, KM_ERROR_INCOMPATIBLE_DIGEST},
                 {"NONE", KM_PURPOSE_VERIFY, {digest(0)}, KM_ERROR_INCOMPATIBLE_DIGEST},
                 {"no length", KM_PURPOSE_SIGN, {sha256}, KM_ERROR_MISSING_MAC_LENGTH},
                 {"no length to verify", KM_PURPOSE_VERIFY, {sha256}, KM_ERROR_OK},
                 {"264", KM_PURPOSE_SIGN, length(264), KM_ERROR_UNSUPPORTED_MAC_LENGTH},
                 {"264 to verify", KM_PURPOSE_VERIFY, length(264), KM_ERROR_UNSUPPORTED_MAC_LENGTH},
                 {"130", KM_PURPOSE_SIGN, length(130), KM_ERROR_UNSUPPORTED_MAC_LENGTH},
                 {"120", KM_PURPOSE_SIGN, length(120), KM_ERROR_INVALID_MAC_LENGTH},
                 {"128", KM_PURPOSE_SIGN, length(128), KM_ERROR_OK, kStrongBox},
             });
}

}  // namespace
}  // namespace lumo::test
