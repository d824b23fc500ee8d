#include <gmock/gmock.h>
#include <openssl/evp.h>

#include "Crypto.h"
#include "Device.h"
#include "SampleKeys.h"

namespace lumo::test {
namespace {

constexpr auto kUnknownTag = static_cast<keymaster_tag_t>(KM_UINT | 9999);

OpenedKey made(Device& device, const ParamSet& params) {
    return device->characteristics(device->generateKey(params), params);
}

constexpr auto kOk = KM_ERROR_OK;
constexpr auto kSize = KM_ERROR_UNSUPPORTED_KEY_SIZE;
constexpr auto kCurve = KM_ERROR_UNSUPPORTED_EC_CURVE;
constexpr auto kArgument = KM_ERROR_INVALID_ARGUMENT;
constexpr auto kDigest = KM_ERROR_UNSUPPORTED_DIGEST;
constexpr auto kNoMinimum = KM_ERROR_MISSING_MIN_MAC_LENGTH;
constexpr auto kMinimum = KM_ERROR_UNSUPPORTED_MIN_MAC_LENGTH;
constexpr auto kTag = KM_ERROR_INVALID_TAG;
constexpr auto kNoRollback = KM_ERROR_ROLLBACK_RESISTANCE_UNAVAILABLE;
constexpr auto kMismatch = KM_ERROR_IMPORT_PARAMETER_MISMATCH;
constexpr auto kFormat = KM_ERROR_UNSUPPORTED_KEY_FORMAT;

// What the two levels answer: the same, unless a second code is given.
struct Answer {
    Answer(keymaster_error_t both) : tee(both), strongbox(both) {}
    Answer(keymaster_error_t first, keymaster_error_t second) : tee(first), strongbox(second) {}
    keymaster_error_t tee;
    keymaster_error_t strongbox;
};

struct CreationCase {
    const char* what;
    ParamSet params;
    Answer answer;
};

void expectAll(const std::vector<CreationCase>& cases) {
    Device tee(kTee);
    Device strongbox(kStrongBox);
    for (const CreationCase& each : cases) {
        SCOPED_TRACE(each.what);
        EXPECT_EQ(errorOf([&] { tee->generateKey(each.params); }), each.answer.tee);
        EXPECT_EQ(errorOf([&] { strongbox->generateKey(each.params); }), each.answer.strongbox);
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
    const auto size = [](uint64_t bits) { return intParam(KM_TAG_KEY_SIZE, bits); };
    const auto curve = [](uint64_t number) { return intParam(KM_TAG_EC_CURVE, number); };
    const auto hmac = [](uint64_t bits) { return changed(hmacKey(), KM_TAG_KEY_SIZE, bits); };
    const auto exponent = [](uint64_t value) {
        return changed(rsaKey(), KM_TAG_RSA_PUBLIC_EXPONENT, value);
    };
    const ParamSet des = {intParam(KM_TAG_ALGORITHM, KM_ALGORITHM_TRIPLE_DES)};
    expectAll({
        {"no algorithm", {size(256)}, KM_ERROR_UNSUPPORTED_ALGORITHM},
        {"algorithm 2", changed(aes(128), KM_TAG_ALGORITHM, 2), KM_ERROR_UNSUPPORTED_ALGORITHM},
        {"RSA 1024", rsaKey(1024), {kOk, kSize}},
        {"RSA 1025", rsaKey(1025), kSize},
        {"RSA, nothing", {intParam(KM_TAG_ALGORITHM, KM_ALGORITHM_RSA)}, kSize},
        {"RSA, no exponent", without(rsaKey(), KM_TAG_RSA_PUBLIC_EXPONENT), kArgument},
        {"RSA with 3", exponent(3), kOk},
        {"RSA with 9", exponent(9), kArgument},
        {"EC, nothing", ec({}), kSize},
        {"EC 190", ec({size(190)}), kSize},
        {"EC 224", ec({size(224)}), {kOk, kSize}},
        {"EC P-256", ec({curve(KM_EC_CURVE_P_256)}), kOk},
        {"EC P-384", ec({curve(KM_EC_CURVE_P_384)}), {kOk, kCurve}},
        {"EC curve 9", ec({curve(9)}), kCurve},
        {"EC 224 as P-256", ec({size(224), curve(KM_EC_CURVE_P_256)}), kArgument},
        {"EC 256 as P-256", ec({size(256), curve(KM_EC_CURVE_P_256)}), kOk},
        {"AES 192", aes(192), {kOk, kSize}},
        {"AES 136", aes(136), kSize},
        {"AES, no size", without(aes(128), KM_TAG_KEY_SIZE), kSize},
        {"3DES 168", with(des, {size(168)}), kOk},
        {"3DES 192", with(des, {size(192)}), kSize},
        {"HMAC, no size", without(hmacKey(), KM_TAG_KEY_SIZE), kSize},
        {"HMAC 56", hmac(56), kSize},
        {"HMAC 64", hmac(64), kOk},
        {"HMAC 512", hmac(512), kOk},
        {"HMAC 1024", hmac(1024), {kOk, kSize}},
        {"HMAC 1032", hmac(1032), kSize},
    });
}

TEST(Generate, ChecksDigestsAndMacLengths) {
    const auto hmac = [](uint64_t digest, uint64_t least) {
        return changed(changed(hmacKey(), KM_TAG_DIGEST, digest), KM_TAG_MIN_MAC_LENGTH, least);
    };
    const Param gcm_mode = intParam(KM_TAG_BLOCK_MODE, KM_MODE_GCM);
    const auto gcm = [&gcm_mode](uint64_t least) {
        return with(aes(128), {gcm_mode, intParam(KM_TAG_MIN_MAC_LENGTH, least)});
    };
    expectAll({
        {"no digest", without(hmacKey(), KM_TAG_DIGEST), kDigest},
        {"digest 7", hmac(7, 128), kDigest},
        {"two digests", with(hmacKey(), {intParam(KM_TAG_DIGEST, KM_DIGEST_SHA1)}), kDigest},
        {"one digest twice", with(hmacKey(), sha256Digest()), kOk},
        {"MD5 in full", hmac(KM_DIGEST_MD5, 128), {kOk, kDigest}},
        {"SHA-512 in full", hmac(KM_DIGEST_SHA_2_512, 512), {kOk, kDigest}},
        {"SHA-1 beyond", hmac(KM_DIGEST_SHA1, 168), {kMinimum, kDigest}},
        {"no minimum", without(hmacKey(), KM_TAG_MIN_MAC_LENGTH), kNoMinimum},
        {"minimum 56", hmac(KM_DIGEST_SHA_2_256, 56), kMinimum},
        {"minimum 64", hmac(KM_DIGEST_SHA_2_256, 64), kOk},
        {"minimum 132", hmac(KM_DIGEST_SHA_2_256, 132), kMinimum},
        {"GCM without", with(aes(128), {gcm_mode}), kNoMinimum},
        {"GCM 88", gcm(88), kMinimum},
        {"GCM 96", gcm(96), kOk},
        {"GCM 100", gcm(100), kMinimum},
        {"GCM 128", gcm(128), kOk},
        {"GCM 136", gcm(136), kMinimum},
    });
}

TEST(Generate, ChecksWhatTheCallerMaySay) {
    const auto key = [](std::initializer_list<Param> more) { return with(aes(128), more); };
    const auto twice = [&key](keymaster_tag_t tag) {
        return key({bytesParam(tag, Bytes{1}), bytesParam(tag, Bytes{2})});
    };
    const Param no_auth = boolParam(KM_TAG_NO_AUTH_REQUIRED);
    const Param storage = boolParam(KM_TAG_STORAGE_KEY);
    const Param presence = boolParam(KM_TAG_TRUSTED_USER_PRESENCE_REQUIRED);
    const Param foolish = intParam(KM_TAG_PADDING, KM_PAD_RSA_PSS);
    expectAll({
        {"origin", key({intParam(KM_TAG_ORIGIN, 0)}), kTag},
        {"credential key", key({boolParam(KM_TAG_IDENTITY_CREDENTIAL_KEY)}), kTag},
        {"two sizes", key({intParam(KM_TAG_KEY_SIZE, 256)}), kArgument},
        {"one size twice", key({intParam(KM_TAG_KEY_SIZE, 128)}), kOk},
        {"two application ids", twice(KM_TAG_APPLICATION_ID), kArgument},
        {"two nonces, neither of which matters", twice(KM_TAG_NONCE), kOk},
        {"auth and none", key({no_auth, intParam(KM_TAG_USER_SECURE_ID, 1)}), kArgument},
        {"storage key", key({storage}), KM_ERROR_STORAGE_KEY_UNSUPPORTED},
        {"rollback resistance", key({boolParam(KM_TAG_ROLLBACK_RESISTANCE)}), kNoRollback},
        {"its old name", key({boolParam(KM_TAG_ROLLBACK_RESISTANT)}), kNoRollback},
        {"hardware type",
         key({intParam(KM_TAG_HARDWARE_TYPE, kTee)}),
         {kOk, KM_ERROR_HARDWARE_TYPE_UNAVAILABLE}},
        {"presence", key({presence}), KM_ERROR_UNIMPLEMENTED},
        {"foolish", key({intParam(KM_TAG_PURPOSE, KM_PURPOSE_SIGN), foolish}), kOk},
        // The checks come in a fixed order.
        {"tag before size", with(aes(7), {intParam(KM_TAG_ORIGIN, 0)}), kTag},
        {"ability before size", with(aes(7), {storage}), KM_ERROR_STORAGE_KEY_UNSUPPORTED},
        {"size before digest", without(changed(hmacKey(), KM_TAG_KEY_SIZE, 7), KM_TAG_DIGEST),
         kSize},
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

    EXPECT_EQ(text(key.hardware),
              "20000001=2 20000001=3 10000002=3 30000003=256 1000000a=1 1000012d=0 100002be=0 "
              "300002c1=110000 300002c2=202012 300002cf=20201205 300002ce=20201105 10000130=1");
    EXPECT_EQ(text(key.software), "300001f5=10 600002bd=1600000000000");
    EXPECT_EQ(text(key.sealed), "7000012e=1 3000270f=77");

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
    const OpenedKey three = made(device, changed(rsaKey(), KM_TAG_RSA_PUBLIC_EXPONENT, 3));
    EXPECT_TRUE(three.hardware.contains(KM_TAG_RSA_PUBLIC_EXPONENT, 3));
}

struct ImportCase {
    const char* what;
    ParamSet params;
    Bytes data;
    Answer answer;
};

TEST(Import, ComparesBeforeItAsksForSupport) {
    const auto size = [](uint64_t bits) { return intParam(KM_TAG_KEY_SIZE, bits); };
    const Bytes p256 = fromHex(kP256);
    const Bytes rsa1024 = fromHex(kRsa1024);
    const ParamSet rsa = {intParam(KM_TAG_ALGORITHM, KM_ALGORITHM_RSA)};
    const ParamSet aes_any = without(aes(0), KM_TAG_KEY_SIZE);
    const ParamSet hmac = without(hmacKey(), KM_TAG_KEY_SIZE);
    const ParamSet des = {intParam(KM_TAG_ALGORITHM, KM_ALGORITHM_TRIPLE_DES)};
    const Param p224 = intParam(KM_TAG_EC_CURVE, KM_EC_CURVE_P_224);
    const Param three = intParam(KM_TAG_RSA_PUBLIC_EXPONENT, 3);
    const std::vector<ImportCase> cases = {
        {"P-256", ec({}), p256, kOk},
        {"P-256, inner parameters", ec({}), fromHex(kP256InnerParameters), kOk},
        {"P-256, no public part", ec({}), fromHex(kP256NoPublic), kOk},
        {"P-256 as 224", ec({size(224)}), p256, kMismatch},
        {"P-256 as P-224", ec({p224}), p256, kMismatch},
        {"P-521", ec({size(521)}), fromHex(kP521), {kOk, kSize}},
        {"foreign curve", ec({}), fromHex(kSecp256k1), kCurve},
        {"EC as RSA", rsa, p256, KM_ERROR_INCOMPATIBLE_ALGORITHM},
        {"truncated", ec({}), ByteView(p256).sub(0, 100).copy(), kArgument},
        {"RSA, all deduced", rsa, rsa1024, {kOk, kSize}},
        {"RSA 1024 as 2048", rsaKey(2048), rsa1024, kMismatch},
        {"RSA with 3", with(rsa, {three}), rsa1024, kMismatch},
        {"AES 128", aes(128), Bytes(16, 1), kOk},
        {"AES 192", aes(192), Bytes(24, 1), {kOk, kSize}},
        {"AES of 15 bytes", aes_any, Bytes(15, 1), kSize},
        {"AES as 256", aes(256), Bytes(16, 1), kMismatch},
        {"3DES", with(des, {size(168)}), Bytes(24, 1), kOk},
        {"3DES as 192", with(des, {size(192)}), Bytes(24, 1), kMismatch},
        {"HMAC of 15 bytes", hmac, Bytes(15, 1), kOk},
        {"HMAC of 7 bytes", hmac, Bytes(7, 1), kSize},
        {"HMAC of 65 bytes", hmac, Bytes(65, 1), {kOk, kSize}},
        {"HMAC, no digest", without(hmac, KM_TAG_DIGEST), Bytes(16, 1), kDigest},
    };
    Device tee(kTee);
    Device strongbox(kStrongBox);
    for (const ImportCase& each : cases) {
        SCOPED_TRACE(each.what);
        const bool pkcs8 = *each.params.integer(KM_TAG_ALGORITHM) <= KM_ALGORITHM_EC;
        const uint32_t format = pkcs8 ? KM_KEY_FORMAT_PKCS8 : KM_KEY_FORMAT_RAW;
        const uint32_t other = pkcs8 ? KM_KEY_FORMAT_RAW : KM_KEY_FORMAT_PKCS8;
        const auto attempt = [&each](Device& device, uint32_t as) {
            return errorOf([&] { device->importKey(each.params, as, each.data); });
        };
        EXPECT_EQ(attempt(tee, format), each.answer.tee);
        EXPECT_EQ(attempt(strongbox, format), each.answer.strongbox);
        EXPECT_EQ(attempt(tee, other), kFormat);
    }
}

TEST(Import, DeducesAndExportsAsOpensslDoes) {
    struct Case {
        ParamSet params;
        const char* key;
        const char* exported;
        const char* hardware;
        size_t part_sizes[2];  // x and y, or modulus and exponent
    };
    const Case cases[] = {
        {ec({}), kP256NoPublic, kP256Public, "30000003=256 1000000a=1", {32, 32}},
        {without(rsaKey(), KM_TAG_KEY_SIZE),
         kRsa1024,
         kRsa1024Public,
         "30000003=1024 500000c8=65537",
         {128, 3}},
    };
    Device device;
    for (const Case& each : cases) {
        const Bytes blob = device->importKey(each.params, KM_KEY_FORMAT_PKCS8, fromHex(each.key));
        const ParamSet hardware = device->characteristics(blob, {}).hardware;
        EXPECT_THAT(text(hardware), testing::HasSubstr(each.hardware));
        EXPECT_TRUE(hardware.contains(KM_TAG_ORIGIN, KM_ORIGIN_IMPORTED));
        const std::string exported = toHex(device->exportKey(KM_KEY_FORMAT_X509, blob, {}));
        EXPECT_EQ(exported, each.exported);

        // The parts stand in the encoding, too: without leading zeros, big-endian.
        const PublicKeyParts parts = device->exportKeyParts(KM_KEY_FORMAT_X509, blob, {});
        for (const Bytes& part : {parts.modulus, parts.exponent, parts.x, parts.y}) {
            EXPECT_THAT(exported, testing::HasSubstr(toHex(part)));
        }
        EXPECT_EQ(parts.x.size() + parts.modulus.size(), each.part_sizes[0]);
        EXPECT_EQ(parts.y.size() + parts.exponent.size(), each.part_sizes[1]);
    }
}

TEST(Export, GivesOutPublicKeysOnly) {
    Device device;
    const auto attempt = [&](const ParamSet& key, uint32_t format) {
        const Bytes blob = device->generateKey(key);
        return errorOf([&] { device->exportKey(format, blob, {}); });
    };
    for (const uint32_t format : {KM_KEY_FORMAT_X509, KM_KEY_FORMAT_PKCS8, KM_KEY_FORMAT_RAW}) {
        EXPECT_EQ(attempt(aesKey(), format), kFormat);
        EXPECT_EQ(attempt(ecKey(), format), format == KM_KEY_FORMAT_X509 ? kOk : kFormat);
    }
}

}  // namespace
}  // namespace lumo::test
