#include <openssl/evp.h>

#include "Crypto.h"
#include "Device.h"
#include "SampleKeys.h"

namespace lumo::test {
namespace {

constexpr auto kUnknownTag = static_cast<keymaster_tag_t>(KM_UINT | 9999);

// The authorizations of a key without its version tags; KeyVersions covers those.
OpenedKey made(Device& device, const ParamSet& params) {
    return device->characteristics(device->generateKey(params), params);
}

struct CreationCase {
    const char* what;
    ParamSet params;
    keymaster_error_t tee;
    keymaster_error_t strongbox;
};

void expectAll(const std::vector<CreationCase>& cases) {
    Device tee(kTee);
    Device strongbox(kStrongBox);
    for (const CreationCase& each : cases) {
        SCOPED_TRACE(each.what);
        EXPECT_EQ(errorOf([&] { tee->generateKey(each.params); }), each.tee);
        EXPECT_EQ(errorOf([&] { strongbox->generateKey(each.params); }), each.strongbox);
    }
}

ParamSet aes(uint64_t bits) {
    return {intParam(KM_TAG_ALGORITHM, KM_ALGORITHM_AES), intParam(KM_TAG_KEY_SIZE, bits)};
}
ParamSet ec(std::initializer_list<Param> more) {
    return with({intParam(KM_TAG_ALGORITHM, KM_ALGORITHM_EC)}, ParamSet(more));
}
ParamSet changed(ParamSet params, keymaster_tag_t tag, uint64_t value) {
    return with(without(std::move(params), tag), {intParam(tag, value)});
}

TEST(Generate, ChecksSizesCurvesAndExponents) {
    constexpr auto kOk = KM_ERROR_OK;
    constexpr auto kSize = KM_ERROR_UNSUPPORTED_KEY_SIZE;
    constexpr auto kCurve = KM_ERROR_UNSUPPORTED_EC_CURVE;
    constexpr auto kArgument = KM_ERROR_INVALID_ARGUMENT;
    const Param size224 = intParam(KM_TAG_KEY_SIZE, 224);
    const Param size256 = intParam(KM_TAG_KEY_SIZE, 256);
    const Param p256 = intParam(KM_TAG_EC_CURVE, KM_EC_CURVE_P_256);
    const ParamSet des = {intParam(KM_TAG_ALGORITHM, KM_ALGORITHM_TRIPLE_DES)};
    expectAll({
        {"no algorithm", {size256}, KM_ERROR_UNSUPPORTED_ALGORITHM, KM_ERROR_UNSUPPORTED_ALGORITHM},
        {"algorithm 2", changed(aes(128), KM_TAG_ALGORITHM, 2), KM_ERROR_UNSUPPORTED_ALGORITHM,
         KM_ERROR_UNSUPPORTED_ALGORITHM},
        {"RSA 1024", rsaKey(1024), kOk, kSize},
        {"RSA 2048", rsaKey(2048), kOk, kOk},
        {"RSA 2048 with 3", changed(rsaKey(), KM_TAG_RSA_PUBLIC_EXPONENT, 3), kOk, kOk},
        {"RSA 1025", rsaKey(1025), kSize, kSize},
        {"RSA without size or exponent",
         {intParam(KM_TAG_ALGORITHM, KM_ALGORITHM_RSA)},
         kSize,
         kSize},
        {"RSA without exponent", without(rsaKey(), KM_TAG_RSA_PUBLIC_EXPONENT), kArgument,
         kArgument},
        {"RSA exponent 9", changed(rsaKey(), KM_TAG_RSA_PUBLIC_EXPONENT, 9), kArgument, kArgument},
        {"EC nothing", ec({}), kSize, kSize},
        {"EC 190", ec({intParam(KM_TAG_KEY_SIZE, 190)}), kSize, kSize},
        {"EC 224", ec({size224}), kOk, kSize},
        {"EC 521", ec({intParam(KM_TAG_KEY_SIZE, 521)}), kOk, kSize},
        {"EC P-256", ec({p256}), kOk, kOk},
        {"EC P-384", ec({intParam(KM_TAG_EC_CURVE, KM_EC_CURVE_P_384)}), kOk, kCurve},
        {"EC curve 9", ec({intParam(KM_TAG_EC_CURVE, 9)}), kCurve, kCurve},
        {"EC 224 as P-256", ec({size224, p256}), kArgument, kArgument},
        {"EC 256 as P-256", ec({size256, p256}), kOk, kOk},
        {"AES 128", aes(128), kOk, kOk},
        {"AES 192", aes(192), kOk, kSize},
        {"AES 256", aes(256), kOk, kOk},
        {"AES 136", aes(136), kSize, kSize},
        {"AES without size", without(aes(128), KM_TAG_KEY_SIZE), kSize, kSize},
        {"3DES 168", with(des, {intParam(KM_TAG_KEY_SIZE, 168)}), kOk, kOk},
        {"3DES 192", with(des, {intParam(KM_TAG_KEY_SIZE, 192)}), kSize, kSize},
        {"3DES without size", des, kSize, kSize},
        {"HMAC without size", without(hmacKey(), KM_TAG_KEY_SIZE), kSize, kSize},
        {"HMAC 0", changed(hmacKey(), KM_TAG_KEY_SIZE, 0), kSize, kSize},
        {"HMAC 56", changed(hmacKey(), KM_TAG_KEY_SIZE, 56), kSize, kSize},
        {"HMAC 64", changed(hmacKey(), KM_TAG_KEY_SIZE, 64), kOk, kOk},
        {"HMAC 65", changed(hmacKey(), KM_TAG_KEY_SIZE, 65), kSize, kSize},
        {"HMAC 512", changed(hmacKey(), KM_TAG_KEY_SIZE, 512), kOk, kOk},
        {"HMAC 1024", changed(hmacKey(), KM_TAG_KEY_SIZE, 1024), kOk, kSize},
        {"HMAC 1032", changed(hmacKey(), KM_TAG_KEY_SIZE, 1032), kSize, kSize},
    });
}

TEST(Generate, ChecksDigestsAndMacLengths) {
    constexpr auto kOk = KM_ERROR_OK;
    constexpr auto kDigest = KM_ERROR_UNSUPPORTED_DIGEST;
    constexpr auto kMissing = KM_ERROR_MISSING_MIN_MAC_LENGTH;
    constexpr auto kLength = KM_ERROR_UNSUPPORTED_MIN_MAC_LENGTH;
    const auto hmac = [](uint64_t digest, uint64_t least) {
        return changed(changed(hmacKey(), KM_TAG_DIGEST, digest), KM_TAG_MIN_MAC_LENGTH, least);
    };
    const auto gcm = [](uint64_t least) {
        return with(aes(128), {intParam(KM_TAG_BLOCK_MODE, KM_MODE_GCM),
                               intParam(KM_TAG_MIN_MAC_LENGTH, least)});
    };
    expectAll({
        {"no digest", without(hmacKey(), KM_TAG_DIGEST), kDigest, kDigest},
        {"NONE", hmac(KM_DIGEST_NONE, 128), kDigest, kDigest},
        {"digest 7", hmac(7, 128), kDigest, kDigest},
        {"two digests", with(hmacKey(), {intParam(KM_TAG_DIGEST, KM_DIGEST_SHA1)}), kDigest,
         kDigest},
        {"one digest twice", with(hmacKey(), sha256Digest()), kOk, kOk},
        {"MD5 in full", hmac(KM_DIGEST_MD5, 128), kOk, kDigest},
        {"SHA-512 in full", hmac(KM_DIGEST_SHA_2_512, 512), kOk, kDigest},
        {"SHA-1 beyond", hmac(KM_DIGEST_SHA1, 168), kLength, kDigest},
        {"no minimum", without(hmacKey(), KM_TAG_MIN_MAC_LENGTH), kMissing, kMissing},
        {"minimum 0", hmac(KM_DIGEST_SHA_2_256, 0), kLength, kLength},
        {"minimum 56", hmac(KM_DIGEST_SHA_2_256, 56), kLength, kLength},
        {"minimum 64", hmac(KM_DIGEST_SHA_2_256, 64), kOk, kOk},
        {"minimum 132", hmac(KM_DIGEST_SHA_2_256, 132), kLength, kLength},
        {"GCM without", with(aes(128), {intParam(KM_TAG_BLOCK_MODE, KM_MODE_GCM)}), kMissing,
         kMissing},
        {"GCM 88", gcm(88), kLength, kLength},
        {"GCM 96", gcm(96), kOk, kOk},
        {"GCM 100", gcm(100), kLength, kLength},
        {"GCM 128", gcm(128), kOk, kOk},
        {"GCM 136", gcm(136), kLength, kLength},
        {"ECB needs none", with(aes(128), {intParam(KM_TAG_BLOCK_MODE, KM_MODE_ECB)}), kOk, kOk},
    });
}

TEST(Generate, ChecksWhatTheCallerMaySay) {
    constexpr auto kOk = KM_ERROR_OK;
    constexpr auto kTag = KM_ERROR_INVALID_TAG;
    constexpr auto kArgument = KM_ERROR_INVALID_ARGUMENT;
    const auto key = [](std::initializer_list<Param> more) { return with(aes(128), more); };
    expectAll({
        {"origin", key({intParam(KM_TAG_ORIGIN, 0)}), kTag, kTag},
        {"root of trust", key({bytesParam(KM_TAG_ROOT_OF_TRUST, Bytes{1})}), kTag, kTag},
        {"unique id", key({bytesParam(KM_TAG_UNIQUE_ID, Bytes{1})}), kTag, kTag},
        {"credential key", key({boolParam(KM_TAG_IDENTITY_CREDENTIAL_KEY)}), kTag, kTag},
        {"two sizes", key({intParam(KM_TAG_KEY_SIZE, 256)}), kArgument, kArgument},
        {"one size twice", key({intParam(KM_TAG_KEY_SIZE, 128)}), kOk, kOk},
        {"two application ids",
         key({bytesParam(KM_TAG_APPLICATION_ID, Bytes{1}),
              bytesParam(KM_TAG_APPLICATION_ID, Bytes{2})}),
         kArgument, kArgument},
        {"two nonces, neither of which matters",
         key({bytesParam(KM_TAG_NONCE, Bytes{1}), bytesParam(KM_TAG_NONCE, Bytes{2})}), kOk, kOk},
        {"auth and none",
         key({boolParam(KM_TAG_NO_AUTH_REQUIRED), intParam(KM_TAG_USER_SECURE_ID, 1)}), kArgument,
         kArgument},
        {"storage key", key({boolParam(KM_TAG_STORAGE_KEY)}), KM_ERROR_STORAGE_KEY_UNSUPPORTED,
         KM_ERROR_STORAGE_KEY_UNSUPPORTED},
        {"rollback resistance", key({boolParam(KM_TAG_ROLLBACK_RESISTANCE)}),
         KM_ERROR_ROLLBACK_RESISTANCE_UNAVAILABLE, KM_ERROR_ROLLBACK_RESISTANCE_UNAVAILABLE},
        {"its old name", key({boolParam(KM_TAG_ROLLBACK_RESISTANT)}),
         KM_ERROR_ROLLBACK_RESISTANCE_UNAVAILABLE, KM_ERROR_ROLLBACK_RESISTANCE_UNAVAILABLE},
        {"hardware type", key({intParam(KM_TAG_HARDWARE_TYPE, kTee)}), kOk,
         KM_ERROR_HARDWARE_TYPE_UNAVAILABLE},
        {"presence", key({boolParam(KM_TAG_TRUSTED_USER_PRESENCE_REQUIRED)}),
         KM_ERROR_UNIMPLEMENTED, KM_ERROR_UNIMPLEMENTED},
        {"foolish",
         key({intParam(KM_TAG_PURPOSE, KM_PURPOSE_SIGN), intParam(KM_TAG_PADDING, KM_PAD_RSA_PSS)}),
         kOk, kOk},
        // The checks come in a fixed order.
        {"forbidden tag before size", with(aes(7), {intParam(KM_TAG_ORIGIN, 0)}), kTag, kTag},
        {"ability before size", with(aes(7), {boolParam(KM_TAG_STORAGE_KEY)}),
         KM_ERROR_STORAGE_KEY_UNSUPPORTED, KM_ERROR_STORAGE_KEY_UNSUPPORTED},
        {"size before digest", changed(hmacKey(), KM_TAG_KEY_SIZE, 7),
         KM_ERROR_UNSUPPORTED_KEY_SIZE, KM_ERROR_UNSUPPORTED_KEY_SIZE},
    });
}

TEST(Generate, PutsEveryTagInItsList) {
    Device device;
    const ParamSet extra = {intParam(KM_TAG_OS_VERSION, 1),
                            intParam(KM_TAG_BLOB_USAGE_REQUIREMENTS, 1),
                            bytesParam(KM_TAG_ATTESTATION_CHALLENGE, Bytes{1}),
                            bytesParam(KM_TAG_AUTH_TOKEN, Bytes(69, 0)),
                            intParam(KM_TAG_INVALID, 3),
                            intParam(KM_TAG_USER_ID, 10),
                            boolParam(KM_TAG_BOOTLOADER_ONLY),
                            intParam(kUnknownTag, 77)};
    const ParamSet params = with(without(ecKey(), KM_TAG_DIGEST), extra);
    const OpenedKey key = device->characteristics(device->generateKey(params), {});

    const ParamSet hardware = {intParam(KM_TAG_PURPOSE, KM_PURPOSE_SIGN),
                               intParam(KM_TAG_PURPOSE, KM_PURPOSE_VERIFY),
                               intParam(KM_TAG_ALGORITHM, KM_ALGORITHM_EC),
                               intParam(KM_TAG_KEY_SIZE, 256),
                               intParam(KM_TAG_EC_CURVE, KM_EC_CURVE_P_256),
                               intParam(KM_TAG_BLOB_USAGE_REQUIREMENTS, KM_BLOB_STANDALONE),
                               intParam(KM_TAG_ORIGIN, KM_ORIGIN_GENERATED),
                               intParam(KM_TAG_OS_VERSION, 110000),
                               intParam(KM_TAG_OS_PATCHLEVEL, 202012),
                               intParam(KM_TAG_BOOT_PATCHLEVEL, 20201205),
                               intParam(KM_TAG_VENDOR_PATCHLEVEL, 20201105),
                               intParam(KM_TAG_HARDWARE_TYPE, kTee)};
    const ParamSet software = {intParam(KM_TAG_USER_ID, 10),
                               intParam(KM_TAG_CREATION_DATETIME, device.clock.wall)};
    const ParamSet sealed = {boolParam(KM_TAG_BOOTLOADER_ONLY), intParam(kUnknownTag, 77)};
    const auto expectSame = [](const ParamSet& got, const ParamSet& want) {
        EXPECT_TRUE(std::equal(got.begin(), got.end(), want.begin(), want.end()));
    };
    expectSame(key.hardware, hardware);
    expectSame(key.software, software);
    expectSame(key.sealed, sealed);

    const Param date = intParam(KM_TAG_CREATION_DATETIME, 123);
    EXPECT_EQ(*made(device, with(aesKey(), {date})).software.find(KM_TAG_CREATION_DATETIME), date);
}

TEST(Generate, MakesKeysOfTheStatedKind) {
    Device device;
    EXPECT_EQ(made(device, changed(hmacKey(), KM_TAG_KEY_SIZE, 72)).material.size(), 9U);
    const OpenedKey des = made(device, {intParam(KM_TAG_ALGORITHM, KM_ALGORITHM_TRIPLE_DES),
                                        intParam(KM_TAG_KEY_SIZE, 168)});
    ASSERT_EQ(des.material.size(), 24U);
    for (const uint8_t byte : des.material) EXPECT_EQ(__builtin_popcount(byte) % 2, 1);
    const auto key = parsePrivateKey(made(device, rsaKey(1024)).material);
    ASSERT_NE(key, nullptr);
    EXPECT_EQ(EVP_PKEY_bits(key.get()), 1024);
}

struct ImportCase {
    const char* what;
    ParamSet params;
    uint32_t format;
    Bytes data;
    keymaster_error_t tee;
    keymaster_error_t strongbox;
};

TEST(Import, ComparesBeforeItAsksForSupport) {
    constexpr auto kOk = KM_ERROR_OK;
    constexpr auto kMismatch = KM_ERROR_IMPORT_PARAMETER_MISMATCH;
    constexpr auto kSize = KM_ERROR_UNSUPPORTED_KEY_SIZE;
    constexpr auto kFormat = KM_ERROR_UNSUPPORTED_KEY_FORMAT;
    constexpr uint32_t kPkcs8 = KM_KEY_FORMAT_PKCS8;
    constexpr uint32_t kRaw = KM_KEY_FORMAT_RAW;
    const Bytes p256 = fromHex(kP256);
    const Bytes rsa1024 = fromHex(kRsa1024);
    const ParamSet rsa = {intParam(KM_TAG_ALGORITHM, KM_ALGORITHM_RSA)};
    const ParamSet no_size = without(hmacKey(), KM_TAG_KEY_SIZE);
    const ParamSet des = {intParam(KM_TAG_ALGORITHM, KM_ALGORITHM_TRIPLE_DES)};
    const Bytes truncated = ByteView(p256).sub(0, 100).copy();
    const std::vector<ImportCase> cases = {
        {"P-256", ec({}), kPkcs8, p256, kOk, kOk},
        {"P-256, inner parameters", ec({}), kPkcs8, fromHex(kP256InnerParameters), kOk, kOk},
        {"P-256, no public part", ec({}), kPkcs8, fromHex(kP256NoPublic), kOk, kOk},
        {"P-256 as 224", ec({intParam(KM_TAG_KEY_SIZE, 224)}), kPkcs8, p256, kMismatch, kMismatch},
        {"P-256 as P-224", ec({intParam(KM_TAG_EC_CURVE, KM_EC_CURVE_P_224)}), kPkcs8, p256,
         kMismatch, kMismatch},
        {"P-521", ec({intParam(KM_TAG_KEY_SIZE, 521)}), kPkcs8, fromHex(kP521), kOk, kSize},
        {"foreign curve", ec({}), kPkcs8, fromHex(kSecp256k1), KM_ERROR_UNSUPPORTED_EC_CURVE,
         KM_ERROR_UNSUPPORTED_EC_CURVE},
        {"EC as RSA", rsa, kPkcs8, p256, KM_ERROR_INCOMPATIBLE_ALGORITHM,
         KM_ERROR_INCOMPATIBLE_ALGORITHM},
        {"truncated", ec({}), kPkcs8, truncated, KM_ERROR_INVALID_ARGUMENT,
         KM_ERROR_INVALID_ARGUMENT},
        {"EC raw", ec({}), kRaw, p256, kFormat, kFormat},
        {"RSA 1024", rsaKey(1024), kPkcs8, rsa1024, kOk, kSize},
        {"RSA, all deduced", rsa, kPkcs8, rsa1024, kOk, kSize},
        {"RSA 1024 as 2048", rsaKey(2048), kPkcs8, rsa1024, kMismatch, kMismatch},
        {"RSA, exponent 3", with(rsa, {intParam(KM_TAG_RSA_PUBLIC_EXPONENT, 3)}), kPkcs8, rsa1024,
         kMismatch, kMismatch},
        {"AES 128", aes(128), kRaw, Bytes(16, 1), kOk, kOk},
        {"AES 192", aes(192), kRaw, Bytes(24, 1), kOk, kSize},
        {"AES of 15 bytes", without(aes(1), KM_TAG_KEY_SIZE), kRaw, Bytes(15, 1), kSize, kSize},
        {"AES as 256", aes(256), kRaw, Bytes(16, 1), kMismatch, kMismatch},
        {"AES as PKCS#8", aes(128), kPkcs8, Bytes(16, 1), kFormat, kFormat},
        {"3DES", with(des, {intParam(KM_TAG_KEY_SIZE, 168)}), kRaw, Bytes(24, 1), kOk, kOk},
        {"3DES as 192", with(des, {intParam(KM_TAG_KEY_SIZE, 192)}), kRaw, Bytes(24, 1), kMismatch,
         kMismatch},
        {"3DES of 16 bytes", des, kRaw, Bytes(16, 1), kSize, kSize},
        {"HMAC of 15 bytes", no_size, kRaw, Bytes(15, 1), kOk, kOk},
        {"HMAC of 7 bytes", no_size, kRaw, Bytes(7, 1), kSize, kSize},
        {"HMAC of 65 bytes", no_size, kRaw, Bytes(65, 1), kOk, kSize},
        {"HMAC without digest", without(no_size, KM_TAG_DIGEST), kRaw, Bytes(16, 1),
         KM_ERROR_UNSUPPORTED_DIGEST, KM_ERROR_UNSUPPORTED_DIGEST},
    };
    Device tee(kTee);
    Device strongbox(kStrongBox);
    for (const ImportCase& each : cases) {
        SCOPED_TRACE(each.what);
        const auto importInto = [&each](Device& device) {
            return errorOf([&] { device->importKey(each.params, each.format, each.data); });
        };
        EXPECT_EQ(importInto(tee), each.tee);
        EXPECT_EQ(importInto(strongbox), each.strongbox);
    }
}

TEST(Import, DeducesAndExportsAsOpensslDoes) {
    struct Case {
        ParamSet params;
        const char* key;
        const char* exported;
        ParamSet deduced;
    };
    const Case cases[] = {
        {ec({}),
         kP256,
         kP256Public,
         {intParam(KM_TAG_KEY_SIZE, 256), intParam(KM_TAG_EC_CURVE, KM_EC_CURVE_P_256)}},
        {ec({}), kP256NoPublic, kP256Public, {}},
        {{intParam(KM_TAG_ALGORITHM, KM_ALGORITHM_RSA)},
         kRsa1024,
         kRsa1024Public,
         {intParam(KM_TAG_KEY_SIZE, 1024), intParam(KM_TAG_RSA_PUBLIC_EXPONENT, 65537)}},
    };
    Device device;
    for (const Case& each : cases) {
        const Bytes blob = device->importKey(each.params, KM_KEY_FORMAT_PKCS8, fromHex(each.key));
        const OpenedKey key = device->characteristics(blob, {});
        for (const Param& param : each.deduced) {
            EXPECT_EQ(key.hardware.count(param.tag), 1U);
            EXPECT_TRUE(key.hardware.contains(param.tag, param.integer));
        }
        EXPECT_TRUE(key.hardware.contains(KM_TAG_ORIGIN, KM_ORIGIN_IMPORTED));
        EXPECT_EQ(toHex(device->exportKey(KM_KEY_FORMAT_X509, blob, {})), each.exported);
        EXPECT_EQ(errorOf([&] { device->exportKey(KM_KEY_FORMAT_PKCS8, blob, {}); }),
                  KM_ERROR_UNSUPPORTED_KEY_FORMAT);

        // The parts are in the encoding, too: without leading zeros, big-endian.
        const PublicKeyParts parts = device->exportKeyParts(KM_KEY_FORMAT_X509, blob, {});
        const std::string whole = each.exported;
        for (const Bytes& part : {parts.modulus, parts.exponent, parts.x, parts.y}) {
            EXPECT_NE(whole.find(toHex(part)), std::string::npos);
        }
        EXPECT_EQ(parts.x.size() + parts.modulus.size(), parts.algorithm == 1 ? 128U : 32U);
        EXPECT_EQ(parts.y.size() + parts.exponent.size(), parts.algorithm == 1 ? 3U : 32U);
    }
}

TEST(Export, RefusesSymmetricKeysInAnyFormat) {
    Device device;
    const Bytes blob = device->generateKey(aesKey());
    for (const uint32_t format : {KM_KEY_FORMAT_X509, KM_KEY_FORMAT_PKCS8, KM_KEY_FORMAT_RAW}) {
        EXPECT_EQ(errorOf([&] { device->exportKey(format, blob, {}); }),
                  KM_ERROR_UNSUPPORTED_KEY_FORMAT);
    }
}

}  // namespace
}  // namespace lumo::test
