// Import of wrapped keys, with a vector that another program made.
#include <gtest/gtest.h>

#include <numeric>

#include "Crypto.h"
#include "Der.h"
#include "Hex.h"
#include "Phone.h"
#include "WrappedKey.h"
#include "WrappedKeyVector.h"

namespace lumo::secureapp {
namespace {

using test::errorOf;
using test::fromHex;
using test::Phone;

Bytes countUp(size_t count, uint8_t first) {
    Bytes bytes(count);
    std::iota(bytes.begin(), bytes.end(), first);
    return bytes;
}

const Bytes kWrapped = fromHex(test::kWrappedKey);
const Bytes kMask = countUp(32, 0xE0);
constexpr uint64_t kPasswordSid = 0x1111;
constexpr uint64_t kBiometricSid = 0x2222;

const ParamSet kWrappingParams = {
    intParam(KM_TAG_ALGORITHM, KM_ALGORITHM_RSA), intParam(KM_TAG_PURPOSE, KM_PURPOSE_WRAP),
    intParam(KM_TAG_PADDING, KM_PAD_RSA_OAEP), intParam(KM_TAG_DIGEST, KM_DIGEST_SHA_2_256)};

ParamSet without(ParamSet params, keymaster_tag_t tag) {
    params.removeAll(tag);
    return params;
}

ParamSet with(ParamSet params, const Param& param) {
    params.add(param);
    return params;
}

class WrappedKeyImport : public ::testing::Test {
  protected:
    Phone phone_;
    Keymaster& keymaster_ = phone_.boot();

    Bytes wrappingKey(const ParamSet& params) {
        return keymaster_.importKey(params, KM_KEY_FORMAT_PKCS8, fromHex(test::kWrappingKey));
    }

    Bytes import(ByteView wrapped, ByteView mask = kMask, const ParamSet& unwrapping = {},
                 const ParamSet& wrapping = kWrappingParams) {
        return keymaster_.importWrappedKey(wrapped, wrappingKey(wrapping), mask, unwrapping,
                                           kPasswordSid, kBiometricSid);
    }

    ParamSet authorizations(ByteView blob) { return keymaster_.characteristics(blob, {}).all(); }
};

// The vector's transport key around other contents.
struct Rewrap {
    Bytes description;  // whole SEQUENCE
    Bytes material = countUp(32, 0x80);
    Bytes version = der::integer(0);
    Bytes nonce = countUp(12, 0x10);
    bool drop_tag_byte = false;

    Bytes operator()() const {
        const Bytes sealed = aesGcmSeal(countUp(32, 0x40), nonce, description, material);
        const ByteView tag = ByteView(sealed).sub(material.size());
        return der::sequence({version,
                              der::octetString(parseWrappedKey(kWrapped).encrypted_transport_key),
                              der::octetString(nonce), description,
                              der::octetString(ByteView(sealed).sub(0, material.size())),
                              der::octetString(tag.sub(0, drop_tag_byte ? 15 : 16))});
    }
};

// An AES-256 key for ECB without padding, with `more` authorizations behind number 6.
Bytes aesDescription(const std::string& more, const char* format = "020103") {
    const Bytes list =
        der::item(der::kSequence, fromHex("a1083106020100020101a203020120a30402020100a4053103020101"
                                          "a6053103020101" +
                                          more));
    Bytes contents = fromHex(format);
    contents.insert(contents.end(), list.begin(), list.end());
    return der::item(der::kSequence, contents);
}

TEST_F(WrappedKeyImport, TheVectorsKeyIsImportedAndWorks) {
    const Bytes blob = import(kWrapped);
    const OpenedKey key = keymaster_.openForUse(blob, {});
    EXPECT_EQ(key.material, countUp(32, 0x80));
    EXPECT_TRUE(key.hardware.contains(KM_TAG_ORIGIN, KM_ORIGIN_SECURELY_IMPORTED));
    EXPECT_TRUE(key.hardware.contains(KM_TAG_BLOCK_MODE, KM_MODE_CBC));
    EXPECT_TRUE(key.hardware.contains(KM_TAG_NO_AUTH_REQUIRED));

    const ParamSet mode = {intParam(KM_TAG_BLOCK_MODE, KM_MODE_CBC),
                           intParam(KM_TAG_PADDING, KM_PAD_PKCS7)};
    const BeginResult begun = keymaster_.begin(KM_PURPOSE_ENCRYPT, blob, mode);
    EXPECT_EQ(keymaster_.finish(begun.handle, {}, fromHex("68656c6c6f"), {}).size(), 16U);
}

TEST_F(WrappedKeyImport, WrongMasksDoNotOpenIt) {
    EXPECT_EQ(errorOf([&] { import(kWrapped, Bytes(32, 0)); }), KM_ERROR_VERIFICATION_FAILED);
    EXPECT_EQ(errorOf([&] { import(kWrapped, Bytes(31, 0)); }), KM_ERROR_INVALID_ARGUMENT);
}

TEST_F(WrappedKeyImport, TheWrappingKeyMustBeOne) {
    const struct {
        ParamSet wrapping;
        ParamSet unwrapping;
        keymaster_error_t error;
    } cases[] = {
        {without(kWrappingParams, KM_TAG_PURPOSE), {}, KM_ERROR_INCOMPATIBLE_PURPOSE},
        {without(kWrappingParams, KM_TAG_PADDING), {}, KM_ERROR_INCOMPATIBLE_PADDING_MODE},
        {without(kWrappingParams, KM_TAG_DIGEST), {}, KM_ERROR_INCOMPATIBLE_DIGEST},
        {with(kWrappingParams, intParam(KM_TAG_USER_SECURE_ID, 5)),
         {},
         KM_ERROR_KEY_USER_NOT_AUTHENTICATED},
        {kWrappingParams,
         {intParam(KM_TAG_PADDING, KM_PAD_RSA_PKCS1_1_5_ENCRYPT)},
         KM_ERROR_INCOMPATIBLE_PADDING_MODE},
        {kWrappingParams, {intParam(KM_TAG_DIGEST, KM_DIGEST_SHA1)}, KM_ERROR_INCOMPATIBLE_DIGEST},
        {with(kWrappingParams, bytesParam(KM_TAG_APPLICATION_ID, fromHex("01"))),
         {},
         KM_ERROR_INVALID_KEY_BLOB},
        {with(kWrappingParams, bytesParam(KM_TAG_APPLICATION_ID, fromHex("01"))),
         {bytesParam(KM_TAG_APPLICATION_ID, fromHex("01")),
          intParam(KM_TAG_PADDING, KM_PAD_RSA_OAEP), intParam(KM_TAG_DIGEST, KM_DIGEST_SHA_2_256)},
         KM_ERROR_OK},
    };
    for (size_t i = 0; i < std::size(cases); ++i) {
        EXPECT_EQ(errorOf([&] { import(kWrapped, kMask, cases[i].unwrapping, cases[i].wrapping); }),
                  cases[i].error)
            << i;
    }
    // What the wrapping key lacks is said before anything is made of the wrapper.
    EXPECT_EQ(errorOf([&] { import({}, kMask, {}, without(kWrappingParams, KM_TAG_PURPOSE)); }),
              KM_ERROR_INCOMPATIBLE_PURPOSE);

    const Bytes ec = keymaster_.generateKey({intParam(KM_TAG_ALGORITHM, KM_ALGORITHM_EC),
                                             intParam(KM_TAG_KEY_SIZE, 256),
                                             intParam(KM_TAG_PURPOSE, KM_PURPOSE_WRAP)});
    EXPECT_EQ(errorOf([&] { keymaster_.importWrappedKey(kWrapped, ec, kMask, {}, 0, 0); }),
              KM_ERROR_INCOMPATIBLE_ALGORITHM);
}

TEST_F(WrappedKeyImport, ChangedWrappersAreRefused) {
    for (size_t size = 0; size < kWrapped.size(); ++size) {
        EXPECT_EQ(errorOf([&] { parseWrappedKey(ByteView(kWrapped).sub(0, size)); }),
                  KM_ERROR_INVALID_ARGUMENT)
            << size;
    }
    Bytes longer = kWrapped;
    longer.push_back(0);
    EXPECT_EQ(errorOf([&] { parseWrappedKey(longer); }), KM_ERROR_INVALID_ARGUMENT);

    const Bytes wrapping_key = wrappingKey(kWrappingParams);
    const auto importChanged = [&](ByteView wrapped) {
        return errorOf(
            [&] { keymaster_.importWrappedKey(wrapped, wrapping_key, kMask, {}, 0, 0); });
    };
    for (size_t i = 0; i < kWrapped.size(); ++i) {
        Bytes changed = kWrapped;
        changed[i] ^= 0x40;
        EXPECT_NE(importChanged(changed), KM_ERROR_OK) << i;
    }
    Bytes transport = kWrapped;
    transport[100] ^= 1;
    EXPECT_EQ(importChanged(transport), KM_ERROR_UNKNOWN_ERROR);
    Bytes tag = kWrapped;
    tag.back() ^= 1;
    EXPECT_EQ(importChanged(tag), KM_ERROR_VERIFICATION_FAILED);
}

TEST_F(WrappedKeyImport, FieldsOfTheWrapperAreChecked) {
    const std::string no_auth = "bf8377020500";
    const struct {
        Rewrap wrapper;
        keymaster_error_t error;
    } cases[] = {
        {{aesDescription(no_auth)}, KM_ERROR_OK},
        {{aesDescription(no_auth), countUp(32, 0), der::integer(1)}, KM_ERROR_INVALID_ARGUMENT},
        {{aesDescription(no_auth), countUp(32, 0), der::integer(0), countUp(12, 1), true},
         KM_ERROR_INVALID_ARGUMENT},
        {{aesDescription(no_auth, "020500ffffffff")}, KM_ERROR_UNSUPPORTED_KEY_FORMAT},
        {{aesDescription(no_auth, "02050100000003")}, KM_ERROR_INVALID_ARGUMENT},
        {{aesDescription(no_auth), countUp(24, 0)}, KM_ERROR_IMPORT_PARAMETER_MISMATCH},
        {{aesDescription("bf853e03020100" + no_auth)}, KM_ERROR_INVALID_ARGUMENT},
        {{aesDescription(no_auth + "bf853e03020100")}, KM_ERROR_INVALID_TAG},  // an origin
    };
    for (size_t i = 0; i < std::size(cases); ++i) {
        EXPECT_EQ(errorOf([&] { import(cases[i].wrapper()); }), cases[i].error) << i;
    }
}

TEST_F(WrappedKeyImport, SecureIdsComeFromTheCall) {
    const struct {
        const char* user_secure_id;
        std::vector<uint64_t> sids;
    } cases[] = {
        {"bf837603020101", {kPasswordSid}},
        {"bf837603020102", {kBiometricSid}},
        {"bf837603020103", {kPasswordSid, kBiometricSid}},
        {"bf837607020500ffffffff", {kPasswordSid, kBiometricSid}},
        {"bf8376083106020101020102", {kPasswordSid, kBiometricSid}},
        {"", {}},
    };
    for (const auto& c : cases) {
        const Bytes blob =
            import(Rewrap{aesDescription(c.user_secure_id + std::string("bf837803020103"))}());
        const ParamSet params = authorizations(blob);
        EXPECT_EQ(params.integers(KM_TAG_USER_SECURE_ID), c.sids) << c.user_secure_id;
        EXPECT_EQ(params.integer(KM_TAG_USER_AUTH_TYPE), 3U);
    }
    EXPECT_EQ(errorOf([&] { import(Rewrap{aesDescription("bf837603020104")}()); }),
              KM_ERROR_INVALID_ARGUMENT)
        << "for no authenticator that there is";
}

}  // namespace
}  // namespace lumo::secureapp
