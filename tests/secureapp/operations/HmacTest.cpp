// HMAC against RFC 4231, and signatures that need a confirmation token.
#include "OperationTest.h"

namespace lumo::test {
namespace {

constexpr uint64_t kSha256 = KM_DIGEST_SHA_2_256;

OpenedKey hmacKey(const Bytes& material, uint64_t digest_value, uint64_t min_bits) {
    return testKey(KM_ALGORITHM_HMAC, material, {digest(digest_value), minMac(min_bits)});
}

TEST(Hmac, MatchesThePublishedCases) {
    const Bytes jefe = text("Jefe");
    const Bytes question = text("what do ya want for nothing?");
    const struct {
        Bytes key, data;
        uint64_t digest;
        const char* mac;  // its length is the one asked for
    } cases[] = {
        {jefe, question, KM_DIGEST_SHA_2_224,
         "a30e01098bc6dbbf45690f3a7e9e6d0f8bbea2a39e6148008fd05e44"},
        {jefe, question, KM_DIGEST_SHA_2_384,
         "af45d2e376484031617f78d2b58a6b1b9c7ef464f5a01b47e42ec3736322445e"
         "8e2240ca5e69e2c78b3239ecfab21649"},
        {Bytes(20, 0xaa), Bytes(50, 0xdd), kSha256,
         "773ea91e36800e46854db8ebd09181a72959098b3ef8c122d9635514ced565fe"},
        {Bytes(20, 0xaa), Bytes(50, 0xdd), KM_DIGEST_SHA_2_512,
         "fa73b0089d56a284efb0f0756c890be9b1b5dbdd8ee81a3655f83e33b2279d39"
         "bf3e848279a722c806b485a47e67c807b946a337bee8942674278859e13292fb"},
        {Bytes(20, 0x0c), text("Test With Truncation"), kSha256,
         "a3b6167473100ee06e0c796c2955552b"},
        {Bytes(131, 0xaa), text("Test Using Larger Than Block-Size Key - Hash Key First"), kSha256,
         "60e431591ee0b67f0d8a26aacbf5b77f8e0bc6213728c5140546040f0ee37f54"},
    };
    for (const auto& c : cases) {
        const Bytes mac = fromHex(c.mac);
        const OpenedKey key = hmacKey(c.key, c.digest, 64);
        const ParamSet params = {digest(c.digest), macLength(8 * mac.size())};
        EXPECT_EQ(toHex(run(KM_PURPOSE_SIGN, key, params, c.data)), c.mac);
        EXPECT_EQ(toHex(run(KM_PURPOSE_SIGN, key, params, c.data, {}, 3)), c.mac);
        EXPECT_EQ(runError(KM_PURPOSE_VERIFY, key, {digest(c.digest)}, c.data, mac, 5),
                  KM_ERROR_OK);
    }
}

TEST(Hmac, VerifiesAsMuchAsTheSignatureHolds) {
    const OpenedKey key = hmacKey(Bytes(20, 0xaa), kSha256, 160);
    const Bytes data(50, 0xdd);
    const Bytes mac = fromHex("773ea91e36800e46854db8ebd09181a72959098b3ef8c122d9635514ced565fe");
    const struct {
        const char* name;
        Bytes data, signature;
        keymaster_error_t expected;
    } cases[] = {
        {"whole", data, mac, KM_ERROR_OK},
        {"20 bytes", data, ByteView(mac).sub(0, 20).copy(), KM_ERROR_OK},
        {"19 bytes", data, ByteView(mac).sub(0, 19).copy(), KM_ERROR_INVALID_MAC_LENGTH},
        {"empty", data, {}, KM_ERROR_INVALID_MAC_LENGTH},
        {"too long", data, joined(mac, Bytes(1)), KM_ERROR_VERIFICATION_FAILED},
        {"last byte", data, flipped(mac, 31), KM_ERROR_VERIFICATION_FAILED},
        {"other data", flipped(data, 49), mac, KM_ERROR_VERIFICATION_FAILED},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(runError(KM_PURPOSE_VERIFY, key, {digest(kSha256)}, c.data, c.signature),
                  c.expected)
            << c.name;
    }
}

// The token for "hello" under the test's shared key, computed with another library.
TEST(Confirmation, SigningNeedsTheToken) {
    const Bytes token = fromHex("80e1a9fe1042525b11cfd1e79a1dc9a61f29b14d24466cd28cb5064e25cfa55d");
    OpenedKey key = hmacKey(Bytes(20, 0xaa), kSha256, 128);
    key.software.add(boolParam(KM_TAG_TRUSTED_CONFIRMATION_REQUIRED));
    const ParamSet params = {digest(kSha256), macLength(256)};
    const auto sign = [&](const std::string& first, const std::string& second,
                          const ParamSet& finish_params) {
        const auto operation = begin(KM_PURPOSE_SIGN, key, params);
        operation->update({}, text(first));
        return operation->finish(finish_params, text(second), {});
    };
    const auto withToken = [](const Bytes& value) {
        return ParamSet{bytesParam(KM_TAG_CONFIRMATION_TOKEN, value)};
    };
    const Bytes mac = hmacSha256(Bytes(20, 0xaa), text("hello"));
    EXPECT_EQ(sign("hel", "lo", withToken(token)), mac);
    EXPECT_EQ(sign("hello", "", withToken(token)), mac);

    constexpr auto kRefused = KM_ERROR_NO_USER_CONFIRMATION;
    EXPECT_EQ(errorOf([&] { sign("hel", "lo", {}); }), kRefused);
    EXPECT_EQ(errorOf([&] { sign("hel", "lo", withToken({})); }), kRefused);
    EXPECT_EQ(errorOf([&] { sign("hel", "lo", withToken(flipped(token, 0))); }), kRefused);
    EXPECT_EQ(errorOf([&] { sign("hel", "lo", withToken(joined(token, Bytes(1)))); }), kRefused);
    EXPECT_EQ(errorOf([&] { sign("hel", "l0", withToken(token)); }), kRefused);
    EXPECT_EQ(runError(KM_PURPOSE_VERIFY, key, params, text("hello"), mac), KM_ERROR_OK);
}

}  // namespace
}  // namespace lumo::test
