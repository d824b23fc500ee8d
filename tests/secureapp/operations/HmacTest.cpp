// HMAC against RFC 4231.
#include "OperationTest.h"
#include "secureapp/keys/OpenedKey.h"

namespace lumo::test {
namespace {

constexpr uint64_t kSha256 = KM_DIGEST_SHA_2_256;

OpenedKey hmacKey(const Bytes& material, uint64_t digest_value, uint64_t min_bits) {
    return testKey(KM_ALGORITHM_HMAC, material, {digest(digest_value), minMac(min_bits)});
}

TEST(Hmac, MatchesThePublishedCases) {
    const Bytes key3(20, 0xaa);
    const Bytes data3(50, 0xdd);
    const struct {
        Bytes key, data;
        uint64_t digest;
        const char* mac;  // its length is the one asked for
    } cases[] = {
        {text("Jefe"), text("what do ya want for nothing?"), KM_DIGEST_SHA_2_224,
         "a30e01098bc6dbbf45690f3a7e9e6d0f8bbea2a39e6148008fd05e44"},
        {key3, data3, kSha256, "773ea91e36800e46854db8ebd09181a72959098b3ef8c122d9635514ced565fe"},
        {key3, data3, KM_DIGEST_SHA_2_512,
         "fa73b0089d56a284efb0f0756c890be9b1b5dbdd8ee81a3655f83e33b2279d39"
         "bf3e848279a722c806b485a47e67c807b946a337bee8942674278859e13292fb"},
        {Bytes(20, 0x0c), text("Test With Truncation"), kSha256,
         "a3b6167473100ee06e0c796c2955552b"},
    };
    for (const auto& c : cases) {
        const Bytes mac = fromHex(c.mac);
        const OpenedKey key = hmacKey(c.key, c.digest, 64);
        const ParamSet params = {digest(c.digest), macLength(8 * mac.size())};
        EXPECT_EQ(toHex(run(kSign, key, params, c.data)), c.mac);
        EXPECT_EQ(toHex(run(kSign, key, params, c.data, {}, 3)), c.mac);
        EXPECT_EQ(runError(kVerify, key, {digest(c.digest)}, c.data, mac, 5), KM_ERROR_OK);
    }
}

}  // namespace
}  // namespace lumo::test
