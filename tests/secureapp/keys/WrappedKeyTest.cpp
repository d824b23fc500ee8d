// Import of wrapped keys, with a vector that another program made.
#include <gtest/gtest.h>

#include <numeric>

#include "Hex.h"
#include "KeymasterUnderTest.h"
#include "WrappedKeyVector.h"
#include "secureapp/crypto/AesGcm.h"
#include "secureapp/crypto/Der.h"
#include "secureapp/keys/WrappedKey.h"

namespace lumo::secureapp {
namespace {

using namespace test;

Bytes countUp(size_t count, uint8_t first) {
    Bytes bytes(count);
    std::iota(bytes.begin(), bytes.end(), first);
    return bytes;
}

const Bytes kWrapped = fromHex(kWrappedKey);
const Bytes kMask = countUp(32, 0xE0);
constexpr uint64_t kPasswordSid = 0x1111;
constexpr uint64_t kBiometricSid = 0x2222;

class WrappedKeyImport : public ::testing::Test {
  protected:
    Device device_;
    const Bytes wrapping_key_ = device_->importKey(
        {intParam(KM_TAG_ALGORITHM, KM_ALGORITHM_RSA), intParam(KM_TAG_PURPOSE, KM_PURPOSE_WRAP),
         intParam(KM_TAG_PADDING, KM_PAD_RSA_OAEP), intParam(KM_TAG_DIGEST, KM_DIGEST_SHA_2_256)},
        KM_KEY_FORMAT_PKCS8, fromHex(kWrappingKey));

    Bytes import(ByteView wrapped) {
        return device_->importWrappedKey(wrapped, wrapping_key_, kMask, {}, kPasswordSid,
                                         kBiometricSid);
    }
    keymaster_error_t importError(ByteView wrapped) {
        return errorOf([&] { import(wrapped); });
    }
};

// An AES-256 key for ECB, wrapped with the vector's transport key; `more` are authorizations with
// numbers above 6.
struct Rewrap {
    std::string more = "bf8377020500";
    Bytes format = der::integer(KM_KEY_FORMAT_RAW);
    uint64_t version = 0;
    size_t nonce_bytes = 12, tag_bytes = 16, key_bytes = 32;

    Bytes operator()() const {
        const std::string list =
            "a1083106020100020101a203020120a30402020100a4053103020101a6053103020101" + more;
        const Bytes description = der::sequence({format, der::item(der::kSequence, fromHex(list))});
        const Bytes nonce = countUp(12, 1);
        const Bytes sealed =
            aesGcmSeal(countUp(32, 0x40), nonce, description, countUp(key_bytes, 0x80));
        return der::sequence({
            der::integer(version),
            der::octetString(parseWrappedKey(kWrapped).encrypted_transport_key),
            der::octetString(ByteView(nonce).sub(0, nonce_bytes)),
            description,
            der::octetString(ByteView(sealed).sub(0, key_bytes)),
            der::octetString(ByteView(sealed).sub(key_bytes, tag_bytes)),
        });
    }
};

TEST_F(WrappedKeyImport, CutAndChangedWrappersAreRefused) {
    for (size_t size = 0; size < kWrapped.size(); ++size) {
        EXPECT_EQ(errorOf([&] { parseWrappedKey(ByteView(kWrapped).sub(0, size)); }),
                  KM_ERROR_INVALID_ARGUMENT);
    }
    for (size_t i = 0; i < kWrapped.size(); i += 5) {
        Bytes changed = kWrapped;
        changed[i] ^= 0x40;
        EXPECT_NE(importError(changed), KM_ERROR_OK) << i;
    }
    constexpr size_t kInTransportKey = 100;
    Bytes transport = kWrapped;
    transport[kInTransportKey] ^= 1;
    EXPECT_EQ(importError(transport), KM_ERROR_UNKNOWN_ERROR);

    const Bytes key_info = der::integer(KM_KEY_FORMAT_RAW);
    const struct {
        Rewrap wrapper;
        keymaster_error_t error;
    } cases[] = {
        {{}, KM_ERROR_OK},
        {{"", key_info, 1}, KM_ERROR_INVALID_ARGUMENT},
        {{"", key_info, 0, 11}, KM_ERROR_INVALID_ARGUMENT},
        {{"", key_info, 0, 12, 15}, KM_ERROR_INVALID_ARGUMENT},
        {{"", key_info, 0, 12, 16, 24}, KM_ERROR_IMPORT_PARAMETER_MISMATCH},
        {{"", der::integer(KM_KEY_FORMAT_PKCS8)}, KM_ERROR_UNSUPPORTED_KEY_FORMAT},
        {{"", der::integer(0x100000003)}, KM_ERROR_INVALID_ARGUMENT},
        {{"bf853e03020100"}, KM_ERROR_INVALID_TAG},       // an origin of its own
        {{"bf837603020104"}, KM_ERROR_INVALID_ARGUMENT},  // for an authenticator that is none
    };
    for (size_t i = 0; i < std::size(cases); ++i) {
        EXPECT_EQ(importError(cases[i].wrapper()), cases[i].error) << i;
    }
}

TEST_F(WrappedKeyImport, SecureIdsComeFromTheCall) {
    const struct {
        const char* user_secure_id;
        std::vector<uint64_t> sids;
    } cases[] = {
        {"bf837603020101", {kPasswordSid}},
        {"bf837603020102", {kBiometricSid}},
        {"bf837607020500ffffffff", {kPasswordSid, kBiometricSid}},
        {"bf8376083106020101020102", {kPasswordSid, kBiometricSid}},
        {"", {}},
    };
    for (const auto& c : cases) {
        const Rewrap wrapper = {c.user_secure_id + std::string("bf837803020103")};
        const ParamSet params = device_->characteristics(import(wrapper()), {}).authorizations;
        EXPECT_EQ(params.integers(KM_TAG_USER_SECURE_ID), c.sids) << c.user_secure_id;
        EXPECT_EQ(params.integer(KM_TAG_USER_AUTH_TYPE), 3U);
    }
}

}  // namespace
}  // namespace lumo::secureapp
