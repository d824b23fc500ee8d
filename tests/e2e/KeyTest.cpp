// Keys: made, imported, described, exported, upgraded and deleted.
#include "Stack.h"
#include "WrappedKeyVector.h"

namespace lumo::test {
namespace {

class Keys : public Stack {};
LUMO_ON_ALL_TARGETS(Keys);

struct CreationCase {
    const char* key;
    Answers answer;
};

constexpr E kKeySize = E::UNSUPPORTED_KEY_SIZE;
constexpr E kDigest = E::UNSUPPORTED_DIGEST;

TEST_P(Keys, AreMadeByTheRules) {
    const CreationCase cases[] = {
        {"size:128", E::UNSUPPORTED_ALGORITHM},
        {"rsa size:2048 e:65537 sign nodigest nopad noauth", E::OK},
        {"rsa size:1024 e:3 pkcs7 encrypt", {E::OK, kKeySize}},
        {"rsa e:3", kKeySize},
        {"rsa size:2048", E::INVALID_ARGUMENT},
        {"rsa size:2048 e:4", E::INVALID_ARGUMENT},
        {"rsa size:2047 e:3", kKeySize},
        {"ec size:224", {E::OK, kKeySize}},
        {"ec size:256", E::OK},
        {"ec size:384", {E::OK, kKeySize}},
        {"ec size:521", {E::OK, kKeySize}},
        {"ec p224", {E::OK, E::UNSUPPORTED_EC_CURVE}},
        {"ec p256", E::OK},
        {"ec p521 noauth", {E::OK, E::UNSUPPORTED_EC_CURVE}},
        {"ec", kKeySize},
        {"ec size:190", kKeySize},
        {"ec size:224 p256", E::INVALID_ARGUMENT},
        {"ec curve:4", E::UNSUPPORTED_EC_CURVE},
        {"aes", kKeySize},
        {"aes size:128 sign verify pkcs7", E::OK},
        {"aes size:192", {E::OK, kKeySize}},
        {"aes size:256 ctr pkcs7", E::OK},
        {"aes size:64", kKeySize},
        {"aes size:128 gcm", E::MISSING_MIN_MAC_LENGTH},
        {"aes size:128 gcm minmac:88", E::UNSUPPORTED_MIN_MAC_LENGTH},
        {"aes size:128 gcm minmac:136", E::UNSUPPORTED_MIN_MAC_LENGTH},
        {"aes size:128 gcm minmac:96", E::OK},
        {"3des size:168 cbc", E::OK},
        {"3des size:192", kKeySize},
        {"hmac sha256 minmac:128", kKeySize},
        {"hmac size:128 md5 minmac:128", {E::OK, kDigest}},
        {"hmac size:128 sha1 minmac:160", {E::OK, kDigest}},
        {"hmac size:128 sha512 minmac:512 cbc pkcs7", {E::OK, kDigest}},
        {"hmac size:128 sha256 minmac:256", E::OK},
        {"hmac size:128 sha1 sha256 minmac:128", kDigest},
        {"hmac size:128 nodigest minmac:128", kDigest},
        {"hmac size:128 minmac:128", kDigest},
        {"hmac size:128 sha256", E::MISSING_MIN_MAC_LENGTH},
        {"hmac size:1024 sha256 minmac:128", {E::OK, kKeySize}},
        {"hmac size:1032 sha256 minmac:128", kKeySize},
        {"aes size:128 from:0", E::INVALID_TAG},
        {"aes size:128 credential", E::INVALID_TAG},
        {"aes size:128 size:256", E::INVALID_ARGUMENT},
        {"aes size:128 size:128 ecb ecb nonce:x mac:7 os:1 patch:2", E::OK},
        {"aes size:128 noauth sid:5", E::INVALID_ARGUMENT},
        {"aes size:128 storage", E::STORAGE_KEY_UNSUPPORTED},
        {"aes size:128 rollback", E::ROLLBACK_RESISTANCE_UNAVAILABLE},
        {"aes size:128 presence", E::UNIMPLEMENTED},
        {"aes size:128 hardware:0", E::HARDWARE_TYPE_UNAVAILABLE},
        {"ec p256 confirmed uses:3 uniqueid bootloader", E::OK},
    };
    for (const CreationCase& each : cases) {
        EXPECT_EQ(generate(each.key).error, expected(each.answer)) << each.key;
    }
    if (std::string(GetParam().profile) != "cbor") return;  // these take long
    for (const char* key : {"rsa size:3072 e:65537", "rsa size:4096 e:65537"}) {
        EXPECT_EQ(generate(key).error, expected({E::OK, kKeySize})) << key;
    }
}

TEST_P(Keys, OfHmacTakeEverySizeAndMinimumInRange) {
    for (int bits = 0; bits < 514; bits += bits % 8 == 1 ? 6 : 1) {  // around each multiple of 8
        const std::string size = std::to_string(bits);
        const bool good_size = bits >= 64 && bits <= 512 && bits % 8 == 0;
        EXPECT_EQ(generate("hmac sha256 minmac:256 size:" + size).error,
                  good_size ? E::OK : kKeySize)
            << size;
        const bool good_minimum = good_size && bits <= 256;
        EXPECT_EQ(generate("hmac sha256 size:128 minmac:" + size).error,
                  good_minimum ? E::OK : E::UNSUPPORTED_MIN_MAC_LENGTH)
            << size;
    }
}

// Everything is reported that the blob's version has a field for, each in its list, once.
TEST_P(Keys, ReportWhatTheyAre) {
    const std::string level = strongbox() ? " hardware:2" : " hardware:1";
    const std::string key =
        "ec size:256 sign verify sha256 nodigest noauth appid:foo appdata:bar user:10 onbody "
        "unlocked active:5 created:1600000000000 challenge:x aad:y confirmed patch:5";
    const Key made = generate(key);
    EXPECT_EQ(made.error, E::OK);
    EXPECT_EQ(made.hardware,
              GetParam().new_blobs
                  ? "bootpatch:20201205 confirmed ec generated" + level +
                        " noauth nodigest os:110000 p256 patch:202012 sha256 sign size:256 "
                        "standalone vendorpatch:20201205 verify"
                  : "ec generated noauth nodigest os:110000 p256 patch:202012 sha256 sign "
                    "size:256 standalone verify");
    EXPECT_EQ(made.software, std::string("active:5 created:1600000000000 onbody ") +
                                 (GetParam().new_blobs ? "unlocked " : "") + "user:10");
    const Key again = characteristics(made.blob, "foo", "bar");
    EXPECT_EQ(again.hardware, made.hardware);
    EXPECT_EQ(again.software, made.software);

    // Auth timeouts are seconds, however the blob keeps them; a date is added where none came.
    const char* words[] = {"size:128", "encrypt", "ecb",          "gcm",        "nopad",
                           "pkcs7",    "sid:7",   "sid:8",        "authtype:3", "timeout:300",
                           "uses:3",   "onbody",  "seconds:2",    "minmac:96",  "callernonce",
                           "uniqueid", "useby:9", "originateby:8"};
    std::string wanted = "aes";
    for (const char* word : words) wanted += std::string(" ") + word;
    const Key rich = generate(wanted);
    const std::string all = rich.hardware + " " + rich.software;
    for (const char* word : words) EXPECT_TRUE(contains(all, word)) << word << " in " << all;
    EXPECT_EQ(rich.software.rfind("created:", 0), 0U) << rich.software;
}

TEST_P(Keys, AreBoundToApplicationIdAndData) {
    const Key key = generate("ec p256 sign sha256 noauth appid:id appdata:data");
    struct Case {
        const char* id;
        const char* data;
        E error;
    };
    constexpr E kBlob = E::INVALID_KEY_BLOB;
    const Case cases[] = {{"id", "data", E::OK},
                          {"", "data", kBlob},
                          {"id", "", kBlob},
                          {"", "", kBlob},
                          {"idd", "ata", kBlob}};
    for (const Case& each : cases) {
        SCOPED_TRACE(std::string(each.id) + "/" + each.data);
        std::string binding;
        if (*each.id != 0) binding += std::string(" appid:") + each.id;
        if (*each.data != 0) binding += std::string(" appdata:") + each.data;
        EXPECT_EQ(tryBegin(KeyPurpose::SIGN, key.blob, "sha256" + binding), each.error);
        EXPECT_EQ(attest(key.blob, "challenge:c attestid:a" + binding).first, each.error);
        EXPECT_EQ(upgrade(key.blob, "os:1" + binding).error, each.error);
        // Over CBOR characteristics are read from the clear part without asking, and exports never
        // carry the application data.
        if (!GetParam().legacy) continue;
        EXPECT_EQ(exportKey(key.blob, KeyFormat::X509, each.id, each.data).error, each.error);
        EXPECT_EQ(characteristics(key.blob, each.id, each.data).error, each.error);
    }
    const Bytes by_id = generate("ec p256 appid:id").blob;
    EXPECT_EQ(exportKey(by_id, KeyFormat::X509, "id").error, E::OK);
    EXPECT_EQ(exportKey(by_id).error, kBlob);
}

TEST_P(Keys, AreImported) {
    const Bytes rsa = rsaPrivate(2048);
    const Bytes p256 = ecPrivate("P-256");
    struct Case {
        std::string key;
        const Bytes& data;
        Answers answer;
        const char* deduced = "imported";
    };
    const Bytes small = rsaPrivate(1024), p521 = ecPrivate("P-521"), junk = text("no key");
    const Bytes aes = pattern(16), aes192 = pattern(24), short_key = pattern(15);
    constexpr E kMismatch = E::IMPORT_PARAMETER_MISMATCH;
    // These libraries take an EC key apart before they send it.
    const bool apart = GetParam().legacy && !GetParam().new_blobs;
    const Case cases[] = {
        {"rsa sign pss sha256", rsa, E::OK, "size:2048"},
        {"rsa e:65537", small, {E::OK, kKeySize}, "size:1024"},
        {"rsa e:65537 size:2048", rsa, E::OK, "e:65537"},
        {"rsa size:1024", rsa, kMismatch},
        {"rsa size:1024 e:3", small, kMismatch},
        {"ec size:256 sign sha256", p256, E::OK, "p256"},
        {"ec p256", p256, E::OK, "size:256"},
        {"ec", p521, {E::OK, kKeySize}, "p521"},
        {"ec size:224", p256, kMismatch},
        {"ec p224", p256, kMismatch},
        {"ec", rsa, apart ? E::INVALID_KEY_BLOB : E::INCOMPATIBLE_ALGORITHM},
        {"rsa", p256, E::INCOMPATIBLE_ALGORITHM},
        {"rsa", junk, E::INVALID_ARGUMENT},
        {"aes size:128 ecb nopad", aes, E::OK, "size:128"},
        {"aes ctr", aes192, {E::OK, kKeySize}, "size:192"},
        {"aes size:256", aes, kMismatch},
        {"aes", short_key, kKeySize},
        {"3des size:168", aes192, E::OK, "size:168"},
        {"hmac sha256 minmac:128", short_key, E::OK, "size:120"},
        {"hmac sha256", short_key, E::MISSING_MIN_MAC_LENGTH},
        {"hmac minmac:128", short_key, kDigest},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.key);
        const bool pkcs8 = each.key[0] == 'r' || each.key[0] == 'e';
        const Key key = import(each.key, pkcs8 ? KeyFormat::PKCS8 : KeyFormat::RAW, each.data);
        EXPECT_EQ(key.error, expected(each.answer));
        if (key.error != E::OK) continue;
        for (const char* word : {"imported", each.deduced}) {
            EXPECT_TRUE(contains(key.hardware, word)) << key.hardware;
        }
    }
    EXPECT_EQ(import("aes", KeyFormat::PKCS8, aes).error, E::UNSUPPORTED_KEY_FORMAT);
    EXPECT_EQ(import("rsa", KeyFormat::RAW, rsa).error, E::UNSUPPORTED_KEY_FORMAT);
}

TEST_P(Keys, ExportPublicKeysOnly) {
    const Key rsa = import("rsa", KeyFormat::PKCS8, rsaPrivate(2048));
    const Bytes private_ec = ecPrivate("P-256");
    const Key ec = import("ec", KeyFormat::PKCS8, private_ec);
    file("rsa", rsaPrivate(2048));
    file("ec", private_ec);
    for (const auto& [name, key] : {std::pair("rsa", rsa), {"ec", ec}}) {
        const Output exported = exportKey(key.blob);
        EXPECT_EQ(exported.error, E::OK);
        file("exported", exported.data);
        expectShell(std::string("openssl pkey -inform der -in ") + name +
                    " -pubout -outform der | cmp - exported");
        EXPECT_EQ(exportKey(key.blob, KeyFormat::PKCS8).error, E::UNSUPPORTED_KEY_FORMAT);
    }
    const Key aes = generate("aes size:128");
    for (const KeyFormat format : {KeyFormat::X509, KeyFormat::PKCS8, KeyFormat::RAW}) {
        EXPECT_EQ(exportKey(aes.blob, format).error, E::UNSUPPORTED_KEY_FORMAT);
    }
}

TEST_P(Keys, WithAChangedByteAreRefused) {
    const Bytes blob = generate("ec p256 sign sha256").blob;
    for (size_t i = 0; i < blob.size(); ++i) {
        ASSERT_EQ(exportKey(flipped(blob, i)).error, E::INVALID_KEY_BLOB) << i;
    }
    for (const Bytes& bad :
         {Bytes(blob.begin(), blob.end() - 1), joined(blob, {0}), pattern(400)}) {
        EXPECT_EQ(tryBegin(KeyPurpose::SIGN, bad, "sha256"), E::INVALID_KEY_BLOB);
        EXPECT_EQ(exportKey(bad).error, E::INVALID_KEY_BLOB);
        EXPECT_EQ(upgrade(bad, "os:1").error, E::INVALID_KEY_BLOB);
        EXPECT_EQ(deleteKey(bad), E::OK);
    }
    // Of nothing, each protocol refuses another command before it is sent.
    const bool legacy = GetParam().legacy;
    EXPECT_EQ(upgrade(blob, "").error, legacy ? E::OK : E::UNEXPECTED_NULL_POINTER);
    EXPECT_EQ(deleteKey({}), legacy ? E::UNEXPECTED_NULL_POINTER : E::OK);
}

// A new boot with other versions, as after an update of the platform or of the image.
TEST_P(Keys, AreUpgradedButNeverDowngraded) {
    struct Case {
        const char* release;
        const char* patch;
        const char* world;
        E use;
        E upgrade;
    };
    constexpr E kOld = E::KEY_REQUIRES_UPGRADE;
    const Case cases[] = {
        {"11", "2020-12-05", "", E::OK, E::OK},
        {"12", "2020-12-05", "", kOld, E::OK},
        {"10", "2020-12-05", "", kOld, E::INVALID_ARGUMENT},
        {"S", "2020-12-05", "", kOld, E::OK},  // in development: version 0
        {"11", "2021-01-05", "", kOld, E::OK},
        {"11", "2020-11-05", "", kOld, E::INVALID_ARGUMENT},
        {"11", "2020-12-05", "vendor_patchlevel = 20210101", kOld, E::OK},
        {"11", "2020-12-05", "boot_patchlevel = 20201201", kOld, E::INVALID_ARGUMENT},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(std::string(each.release) + " " + each.patch + " " + each.world);
        clearWorld();
        setVersions("11", "2020-12-05");
        boot();
        const Key key = generate("aes size:128 encrypt ecb nopad noauth appid:a");
        setVersions(each.release, each.patch);
        setWorld(each.world);
        boot();
        const std::string ecb = "ecb nopad appid:a";
        EXPECT_EQ(tryBegin(KeyPurpose::ENCRYPT, key.blob, ecb), each.use);
        EXPECT_EQ(tryBegin(KeyPurpose::ENCRYPT, key.blob, "ecb nopad"), E::INVALID_KEY_BLOB);
        EXPECT_EQ(deleteKey(key.blob), E::OK);
        const Output upgraded = upgrade(key.blob, "appid:a");
        EXPECT_EQ(upgraded.error, each.upgrade);
        EXPECT_EQ(upgraded.data.empty(), each.use == E::OK || each.upgrade != E::OK);
        if (upgraded.data.empty()) continue;
        EXPECT_EQ(tryBegin(KeyPurpose::ENCRYPT, upgraded.data, ecb), E::OK);
        const std::string patch =
            "patch:" + std::string(each.patch, 4) + std::string(each.patch + 5, 2);
        EXPECT_TRUE(contains(characteristics(upgraded.data, "a").hardware, patch));
        EXPECT_TRUE(upgrade(upgraded.data, "appid:a").data.empty());
    }
}

// Another boot key or lock is another device to the keys, until it is restored.
TEST_P(Keys, AreBoundToTheRootOfTrust) {
    const Key key = generate("aes size:128 encrypt ecb nopad");
    const auto use = [&] { return tryBegin(KeyPurpose::ENCRYPT, key.blob, "ecb nopad"); };
    setWorld("device_locked = yes");
    boot();
    EXPECT_EQ(use(), E::INVALID_KEY_BLOB);
    clearWorld();
    boot();
    EXPECT_EQ(use(), E::OK);
}

TEST_P(Keys, StayDeletedWithRollbackResistance) {
    setWorld("rollback_resistance = yes");
    boot();
    const std::string aes = "aes size:128 encrypt ecb nopad";
    const Bytes plain = generate(aes).blob;
    const Key first = generate(aes + " rollback");
    const Bytes second = generate(aes + " rollback").blob;
    EXPECT_TRUE(contains(first.hardware, GetParam().new_blobs ? "rollback" : "oldrollback"));
    const auto use = [&](const Bytes& blob) {
        return tryBegin(KeyPurpose::ENCRYPT, blob, "ecb nopad");
    };
    for (const Bytes& blob : {plain, first.blob, first.blob, text("garbage")}) {
        EXPECT_EQ(deleteKey(blob), E::OK);
    }
    for (int boots = 0; boots < 2; ++boots) {
        EXPECT_EQ(use(plain), E::OK);
        EXPECT_EQ(use(first.blob), E::INVALID_KEY_BLOB);
        EXPECT_EQ(use(second), E::OK);
        boot();
    }
    EXPECT_TRUE(km_->deleteAllKeys().isOk());
    EXPECT_EQ(use(second), E::INVALID_KEY_BLOB);
    EXPECT_EQ(use(plain), E::OK);
}

TEST_P(Keys, AreImportedWrapped) {
    const Bytes wrapped = fromHex(kWrappedKey);
    const Bytes mask = fromHex("e0e1e2e3e4e5e6e7e8e9eaebecedeeeff0f1f2f3f4f5f6f7f8f9fafbfcfdfeff");
    const auto wrapping = [&](const std::string& purpose) {
        const Key key =
            import("rsa oaep sha256 " + purpose, KeyFormat::PKCS8, fromHex(kWrappingKey));
        EXPECT_EQ(key.error, E::OK);
        return key.blob;
    };
    const Key key = importWrapped(wrapped, wrapping("wrap"), mask);
    EXPECT_EQ(key.error, E::OK);
    for (const char* word : {"unwrapped", "aes", "size:256", "cbc", "pkcs7", "noauth"}) {
        EXPECT_TRUE(contains(key.hardware, word)) << key.hardware;
    }
    const Output output = run(KeyPurpose::ENCRYPT, key.blob, "cbc pkcs7", text("plain"));
    file("cipher", output.data);
    expectShell(
        "openssl enc -d -aes-256-cbc -in cipher -K "
        "808182838485868788898a8b8c8d8e8f909192939495969798999a9b9c9d9e9f -iv " +
            output.out.substr(std::string("nonce:0x").size()),
        "plain");
    EXPECT_EQ(importWrapped(wrapped, wrapping("wrap"), Bytes(32, 0)).error, E::VERIFICATION_FAILED);
    EXPECT_EQ(importWrapped(wrapped, wrapping("decrypt"), mask).error, E::INCOMPATIBLE_PURPOSE);
    EXPECT_EQ(importWrapped(text("x"), wrapping("wrap"), mask).error, E::INVALID_ARGUMENT);
}

}  // namespace
}  // namespace lumo::test
