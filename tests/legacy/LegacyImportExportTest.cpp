// Import and export, where old secure applications leave the encoding of keys to the library.
// Keys were made, taken apart and encoded by the openssl command.

#include <openssl/crypto.h>

#include "LegacyDevice.h"

namespace lumo::test {
namespace {

using ::testing::ElementsAre;
using Params = std::vector<keymaster_key_param_t>;

// A P-256 key whose private scalar begins with a zero byte.
const char kScalar[] = "00bae430e131ca3ce2d788e0a62779aca5a4d16e84521dfe41b8f44e788a9899";
const char kX[] = "faa194b82291a25260308f280f4137b941c742d33a9532d15ff8de42052be515";
const char kY[] = "06c366342506bbb559dc071955fc02b0ba1d974d8623184db624f9f60b1ec7cd";

Bytes p256Pkcs8() {
    return hex("308187020100301306072a8648ce3d020106082a8648ce3d030107046d306b0201010420") +
           hex(kScalar) + hex("a14403420004") + hex(kX) + hex(kY);
}
Bytes p256PublicKey() {
    return hex("3059301306072a8648ce3d020106082a8648ce3d03010703420004") + hex(kX) + hex(kY);
}
Bytes secp256k1Pkcs8() {
    return hex(
        "308184020100301006072a8648ce3d020106052b8104000a046d306b020101042000739a6eb023c953"
        "37522ceb9372f65cf2d159fe7fe12403f2d25316671e4ee5a14403420004fcfe4dad4367f8fc92ec70"
        "0b108d1aa7ff185e91ed9801c9f530d23a647bfc8b3df97573128a37bf77ed3faa7538b122c356a667"
        "96fc174d11803a79417c045d");
}

class LegacyImport : public LegacyDevice {
  protected:
    keymaster_error_t import(Params params, const Bytes& key) {
        const keymaster_key_param_set_t set = setOf(params);
        const keymaster_blob_t data = blobOf(key);
        out_.release();
        return device_.import_key(&set, KM_KEY_FORMAT_PKCS8, &data, &out_.key,
                                  &out_.characteristics);
    }

    const keymaster_key_param_t ec_ = keymaster_param_enum(KM_TAG_ALGORITHM, KM_ALGORITHM_EC);
    const keymaster_key_param_t rsa_ = keymaster_param_enum(KM_TAG_ALGORITHM, KM_ALGORITHM_RSA);
    const keymaster_key_param_t size_ = keymaster_param_int(KM_TAG_KEY_SIZE, 256);
    Outputs out_;
};

TEST_F(LegacyImport, OldSecureApplicationsGetEcKeysTakenApart) {
    script().keymaster_version = 3;
    script().willReply(words({0, 0, 16, 319}) + plainKeyBlob(319));
    EXPECT_EQ(import({size_, ec_}, p256Pkcs8()), KM_ERROR_OK);
    // The record stands behind 24 bytes of header and two parameters; its components follow it.
    EXPECT_EQ(toHex(request()),
              toHex(words({0x10B, 1, 24, 2, 48, 172, 0x30000003, 256, 0xFFFFFFFF, 0x10000002, 3,
                           0xFFFFFFFF, 256, 76, 32, 108, 32, 140, 32}) +
                    hex(kScalar) + hex(kX) + hex(kY)));
    EXPECT_EQ(bytesOf(out_.key), plainKeyBlob(319));
}

TEST_F(LegacyImport, OtherKeysGoOutAsTheyAre) {
    const struct {
        uint32_t version;
        keymaster_key_param_t algorithm;
    } cases[] = {{4, ec_}, {3, rsa_}};
    for (const auto& c : cases) {
        script().keymaster_version = c.version;
        script().willReply(words({0, 0, 16, 319}) + plainKeyBlob(319));
        EXPECT_EQ(import({c.algorithm}, p256Pkcs8()), KM_ERROR_OK);
        EXPECT_EQ(toHex(request()), toHex(words({0x10B, 1, 24, 1, 36, 138, 0x10000002,
                                                 c.algorithm.enumerated, 0xFFFFFFFF}) +
                                          p256Pkcs8()));
    }
}

TEST_F(LegacyImport, RefusalsSendNothingAndHandOutNothing) {
    script().keymaster_version = 3;
    EXPECT_EQ(import({size_}, p256Pkcs8()), KM_ERROR_INVALID_KEY_BLOB);
    EXPECT_EQ(import({ec_}, hex("30 00")), KM_ERROR_INVALID_KEY_BLOB);
    ASSERT_GE(log_.texts().size(), 2u);
    EXPECT_EQ(log_.texts()[log_.texts().size() - 2], "(keymaster_error_t)pkcs8_to_internal failed");
    EXPECT_EQ(log_.texts().back(), "ret: -33");
#ifdef OPENSSL_IS_BORINGSSL
    const keymaster_error_t unknown_curve = KM_ERROR_INVALID_KEY_BLOB;  // it cannot even be read
#else
    const keymaster_error_t unknown_curve = KM_ERROR_UNSUPPORTED_EC_CURVE;
#endif
    EXPECT_EQ(import({ec_}, secp256k1Pkcs8()), unknown_curve);
    // The parameters leave room for the record, but not for all of its components.
    const Bytes filler = fill(kSharedBytes - 24 - 24 - 28 - 95, 1);
    EXPECT_EQ(import({ec_, keymaster_param_blob(KM_TAG_NONCE, filler.data(), filler.size())},
                     p256Pkcs8()),
              KM_ERROR_INSUFFICIENT_BUFFER_SPACE);
    EXPECT_EQ(script().sentCount(), 0u);
    EXPECT_EQ(out_.key.key_material, nullptr);

    // An answered blob that cannot be read is released.
    script().willReply(words({0, 0, 16, 318}) + plainKeyBlob(318));
    EXPECT_EQ(import({rsa_}, p256Pkcs8()), KM_ERROR_INVALID_KEY_BLOB);
    EXPECT_EQ(out_.key.key_material, nullptr);
}

TEST_F(LegacyImport, WrappedKeysAreReadOneWordEarlier) {
    for (const auto& [size, expected] :
         {std::pair{319u, KM_ERROR_OK}, {318u, KM_ERROR_INVALID_KEY_BLOB}}) {
        out_.release();
        script().willReply(words({0, 16, size, 0}) + plainKeyBlob(size));
        EXPECT_EQ(device_.import_wrapped_key(nullptr, 0, 0, {1}, {2}, {3}, &out_.key,
                                             &out_.characteristics),
                  expected);
        EXPECT_EQ(bytesOf(out_.key), expected == KM_ERROR_OK ? plainKeyBlob(size) : Bytes());
    }
}

class LegacyExport : public LegacyDevice {
  protected:
    keymaster_error_t exportKey(const Bytes& response) {
        const Bytes five = fill(5, 1);
        const keymaster_key_blob_t key = keyOf(five);
        out_.release();
        script().willReply(response);
        return device_.export_key(KM_KEY_FORMAT_X509, &key, nullptr, nullptr, &out_.data);
    }
    Outputs out_;
};

TEST_F(LegacyExport, NewSecureApplicationsEncodeKeysThemselves) {
    const Bytes encoded = words({0, 0, 3, 20, 91}) + p256PublicKey();
    // x and y stand behind three words that are not read and their offsets and lengths.
    const Bytes parts = words({0, 0, 3, 20, 92, 9, 9, 9, 28, 32, 60, 32}) + hex(kX) + hex(kY);
    const struct {
        uint32_t version, ta_minor, hal_minor;
        bool encodes;
    } cases[] = {{3, 113, 1, true},  {4, 200, 9, true},  {3, 112, 1, false},
                 {3, 113, 0, false}, {2, 113, 1, false}, {4, 0, 0, false}};
    for (const auto& c : cases) {
        script().keymaster_version = c.version;
        script().ta_minor_version = c.ta_minor;
        script().hal_minor_version = c.hal_minor;
        EXPECT_EQ(exportKey(c.encodes ? encoded : parts), KM_ERROR_OK);
        EXPECT_EQ(toHex(bytesOf(out_.data)), toHex(p256PublicKey()));
        EXPECT_EQ(wordAt(script().lastSent().response_before, 3), 20u);
        EXPECT_EQ(wordAt(script().lastSent().response_before, 4), kSharedBytes - 37 - 20);
    }
}

TEST_F(LegacyExport, RsaKeysAreEncodedAndOthersRefused) {
    const Bytes modulus = hex("c5") + fill(62, 0x11) + hex("0f");
    EXPECT_EQ(exportKey(words({0, 0, 1, 20, 83, 16, 64, 80, 3}) + modulus + hex("010001")),
              KM_ERROR_OK);
    EXPECT_EQ(toHex(bytesOf(out_.data)),
              toHex(hex("305c300d06092a864886f70d0101010500034b003048024100") + modulus +
                    hex("0203010001")));

    // The algorithm is looked at before the key data is.
    EXPECT_EQ(exportKey(words({0, 0, 32, 0xFFFFFFFF, 83})), KM_ERROR_UNSUPPORTED_ALGORITHM);
    EXPECT_THAT(log_.texts(), ElementsAre("Unsupported alg: 32"));
    EXPECT_EQ(out_.data.data, nullptr);
}

}  // namespace
}  // namespace lumo::test
