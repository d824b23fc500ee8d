// AES and triple DES: data that does not fit, and padding.
#include "OperationTest.h"
#include "secureapp/keys/OpenedKey.h"

namespace lumo::test {
namespace {

constexpr uint32_t kAes = KM_ALGORITHM_AES;
constexpr uint32_t kDes = KM_ALGORITHM_TRIPLE_DES;
constexpr uint64_t kNone = KM_PAD_NONE;
constexpr uint64_t kPkcs7 = KM_PAD_PKCS7;
constexpr size_t kTagBytes = 13;

OpenedKey cipherKey(uint32_t algorithm, const Bytes& material) {
    ParamSet all = {padding(kNone), padding(kPkcs7), minMac(96), boolParam(KM_TAG_CALLER_NONCE)};
    for (const uint64_t value : {KM_MODE_ECB, KM_MODE_CBC, KM_MODE_CTR, KM_MODE_GCM}) {
        all.add(mode(value));
    }
    return testKey(algorithm, material, all);
}

ParamSet cipherParams(uint64_t mode_value, uint64_t padding_value, const Bytes& nonce_value) {
    ParamSet params = {mode(mode_value), padding(padding_value), macLength(8 * kTagBytes)};
    if (!nonce_value.empty()) params.add(nonce(nonce_value));
    return params;
}

TEST(Cipher, RefusesDataThatDoesNotFit) {
    const OpenedKey aes = cipherKey(kAes, pattern(16));
    const OpenedKey des = cipherKey(kDes, pattern(24));
    const ParamSet bare = cipherParams(KM_MODE_ECB, kNone, {});
    const ParamSet padded = cipherParams(KM_MODE_ECB, kPkcs7, {});
    const ParamSet gcm = cipherParams(KM_MODE_GCM, kNone, Bytes(12));
    constexpr auto kLength = KM_ERROR_INVALID_INPUT_LENGTH;
    constexpr auto kArgument = KM_ERROR_INVALID_ARGUMENT;
    // A ciphertext whose last block decrypts to zeros and these bytes.
    const auto ending = [&](const OpenedKey& key, const char* bytes) {
        const Bytes end = fromHex(bytes);
        return run(kEncrypt, key, bare, joined(Bytes(48 - end.size()), end));
    };
    const struct {
        const char* name;
        uint32_t purpose;
        const OpenedKey& key;
        const ParamSet& params;
        Bytes data;
        keymaster_error_t expected;
    } cases[] = {
        {"31 bytes", kEncrypt, aes, bare, Bytes(31), kLength},
        {"17 bytes", kDecrypt, aes, bare, Bytes(17), kLength},
        {"15 bytes", kEncrypt, des, bare, Bytes(15), kLength},
        {"no block", kDecrypt, aes, padded, {}, kLength},
        {"part of a block", kDecrypt, des, padded, Bytes(12), kLength},
        {"one byte", kDecrypt, aes, padded, ending(aes, "01"), KM_ERROR_OK},
        {"no byte", kDecrypt, aes, padded, ending(aes, "010100"), kArgument},
        {"17 of 16", kDecrypt, aes, padded, ending(aes, std::string(34, '1').c_str()), kArgument},
        {"uneven", kDecrypt, aes, padded, ending(aes, "03020303"), kArgument},
        {"a block", kDecrypt, des, padded, ending(des, "0808080808080808"), KM_ERROR_OK},
        {"nine of eight", kDecrypt, des, padded, ending(des, "090909090909090909"), kArgument},
        {"part of a tag", kDecrypt, aes, gcm, Bytes(kTagBytes - 1), kLength},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(runError(c.purpose, c.key, c.params, c.data), c.expected) << c.name;
        EXPECT_EQ(runError(c.purpose, c.key, c.params, c.data, {}, 8), c.expected) << c.name;
    }
}

}  // namespace
}  // namespace lumo::test
