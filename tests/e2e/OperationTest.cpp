// Signatures, ciphers and MACs, checked by the openssl command; and what begin and the data refuse.
#include "Stack.h"

namespace lumo::test {
namespace {

class Operations : public Stack {
  protected:
    Bytes rsaKey(const std::string& how, unsigned bits = 2048) {
        const Key key = import("rsa noauth " + how, KeyFormat::PKCS8, rsaPrivate(bits));
        EXPECT_EQ(key.error, E::OK);
        return key.blob;
    }
    Bytes raw(const std::string& how, const Bytes& data) {
        const Key key = import("noauth " + how, KeyFormat::RAW, data);
        EXPECT_EQ(key.error, E::OK) << how;
        return key.blob;
    }
    std::vector<std::string> digests() const {
        if (strongbox()) return {"sha256"};
        return {"sha1", "sha224", "sha256", "sha384", "sha512"};
    }
    // Both changes must be noticed.
    void expectExact(const Bytes& blob, const std::string& how, const Bytes& data,
                     const Bytes& signature) {
        EXPECT_EQ(verify(blob, how, data, signature), E::OK);
        EXPECT_EQ(verify(blob, how, data, flipped(signature, signature.size() / 2)),
                  E::VERIFICATION_FAILED);
        EXPECT_EQ(verify(blob, how, flipped(data, 0), signature), E::VERIFICATION_FAILED);
    }
};
LUMO_ON_ALL_TARGETS(Operations);

struct BeginCase {
    const char* key;
    KeyPurpose purpose;
    const char* how;
    Answers answer;
};

constexpr auto kEncrypt = KeyPurpose::ENCRYPT;
constexpr auto kDecrypt = KeyPurpose::DECRYPT;
constexpr auto kSign = KeyPurpose::SIGN;
constexpr auto kVerify = KeyPurpose::VERIFY;

TEST_P(Operations, BeginByTheRules) {
    constexpr E kNoPurpose = E::UNSUPPORTED_PURPOSE, kOtherPurpose = E::INCOMPATIBLE_PURPOSE;
    constexpr E kNoPadding = E::UNSUPPORTED_PADDING_MODE;
    constexpr E kOtherPadding = E::INCOMPATIBLE_PADDING_MODE;
    constexpr E kNoDigest = E::UNSUPPORTED_DIGEST, kOtherDigest = E::INCOMPATIBLE_DIGEST;
    constexpr E kNoMode = E::UNSUPPORTED_BLOCK_MODE, kOtherMode = E::INCOMPATIBLE_BLOCK_MODE;
    const char* rsa = "rsa sign decrypt pss oaep nopad pkcs7 sha256 nodigest sha512";
    const char* ec = "ec size:256 sign sha256 encrypt decrypt";
    const char* aes = "aes size:128 encrypt decrypt sign verify ecb ctr gcm nopad minmac:104 oaep";
    const char* hmac = "hmac size:128 sign sha256 minmac:128 encrypt decrypt";
    const char* des = "3des size:168 encrypt decrypt cbc ctr nopad";
    const BeginCase cases[] = {
        {aes, kSign, "", kNoPurpose},
        {aes, kVerify, "", kNoPurpose},
        {ec, kEncrypt, "", kNoPurpose},
        {ec, kDecrypt, "", kNoPurpose},
        {hmac, kEncrypt, "", kNoPurpose},
        {hmac, kDecrypt, "", kNoPurpose},
        {rsa, KeyPurpose::WRAP_KEY, "", kNoPurpose},
        {hmac, kVerify, "", kOtherPurpose},
        {"rsa encrypt", kSign, "", kOtherPurpose},
        {"aes size:128 encrypt", kDecrypt, "", kOtherPurpose},
        {"aes size:128 decrypt", kEncrypt, "", kOtherPurpose},
        {"3des size:168", kEncrypt, "", kOtherPurpose},
        {rsa, kSign, "", kNoPadding},
        {rsa, kSign, "pkcs7 sha256", kNoPadding},
        {rsa, kSign, "oaep sha256", kNoPadding},
        {rsa, kDecrypt, "pss sha256", kNoPadding},
        {rsa, kSign, "pss nopad sha256", kNoPadding},
        {rsa, kSign, "pkcs1sign", kOtherPadding},
        {rsa, kVerify, "pkcs1sign sha256", E::OK},
        {rsa, kSign, "pss", kNoDigest},
        {rsa, kSign, "pss sha256 nodigest", kNoDigest},
        {rsa, kSign, "pss nodigest", kOtherDigest},
        {rsa, kSign, "pss sha1", {kOtherDigest, kNoDigest}},
        {rsa, kVerify, "pss sha1", {E::OK, kNoDigest}},
        {rsa, kSign, "nopad sha256", kOtherDigest},
        {rsa, kEncrypt, "oaep nodigest", kOtherDigest},
        {rsa, kDecrypt, "oaep nodigest", kOtherDigest},
        {rsa, kDecrypt, "nopad", E::OK},
        {ec, kSign, "", kNoDigest},
        {ec, kSign, "sha256 nodigest", kNoDigest},
        {ec, kSign, "md5", kNoDigest},
        {ec, kSign, "nodigest", kOtherDigest},
        {ec, kVerify, "nodigest", E::OK},
        {aes, kEncrypt, "nopad", kNoMode},
        {aes, kEncrypt, "ecb ctr nopad", kNoMode},
        {aes, kEncrypt, "mode:4 nopad", kNoMode},
        {aes, kEncrypt, "cbc nopad", kOtherMode},
        {aes, kDecrypt, "cbc nopad", kOtherMode},
        {aes, kEncrypt, "ecb", kNoPadding},
        {aes, kEncrypt, "ecb oaep", kNoPadding},
        {aes, kEncrypt, "ecb pkcs7", kOtherPadding},
        {"aes size:128 encrypt ctr pkcs7", kEncrypt, "ctr nopad", kOtherPadding},
        {"aes size:128 encrypt ctr pkcs7", kEncrypt, "ctr pkcs7", kOtherPadding},
        {aes, kEncrypt, "gcm nopad", E::MISSING_MAC_LENGTH},
        {aes, kEncrypt, "gcm nopad mac:136", E::UNSUPPORTED_MAC_LENGTH},
        {aes, kEncrypt, "gcm nopad mac:100", E::UNSUPPORTED_MAC_LENGTH},
        {aes, kEncrypt, "gcm nopad mac:96", E::INVALID_MAC_LENGTH},
        {aes, kDecrypt, "gcm nopad mac:96 nonce:012345678901", E::INVALID_MAC_LENGTH},
        {aes, kDecrypt, "gcm nopad mac:104 nonce:012345678901", E::OK},
        {aes, kDecrypt, "gcm nopad mac:104", E::MISSING_NONCE},
        {aes, kEncrypt, "ctr nopad nonce:0123456789abcdef", E::CALLER_NONCE_PROHIBITED},
        {aes, kDecrypt, "ctr nopad nonce:0", E::INVALID_NONCE},
        {aes, kDecrypt, "ctr nopad nonce:0123456789abcde", E::INVALID_NONCE},
        {aes, kDecrypt, "ctr nopad nonce:0123456789abcdefg", E::INVALID_NONCE},
        {aes, kEncrypt, "ecb nopad mac:96 noauth", E::OK},
        {des, kEncrypt, "ctr nopad", kNoMode},
        {des, kDecrypt, "ecb nopad", kOtherMode},
        {des, kEncrypt, "cbc pkcs7", kOtherPadding},
        {des, kEncrypt, "cbc nopad nonce:01234567", E::CALLER_NONCE_PROHIBITED},
        {des, kDecrypt, "cbc nopad nonce:0123456", E::INVALID_NONCE},
        {hmac, kSign, "mac:128", kNoDigest},
        {hmac, kSign, "sha256", E::MISSING_MAC_LENGTH},
        {hmac, kSign, "sha256 mac:264", E::UNSUPPORTED_MAC_LENGTH},
        {hmac, kSign, "sha256 mac:120", E::INVALID_MAC_LENGTH},
        {hmac, kSign, "nodigest mac:128", kOtherDigest},
        {"ec size:256 sign sha256 bootloader", kSign, "sha256", E::INVALID_KEY_BLOB},
    };
    for (const BeginCase& each : cases) {
        const std::string key = each.key;
        const Key made =
            key[0] == 'r' ? import(key, KeyFormat::PKCS8, rsaPrivate(2048)) : generate(key);
        EXPECT_EQ(tryBegin(each.purpose, made.blob, each.how), expected(each.answer))
            << key << " / " << each.how;
    }
    if (strongbox()) return;
    const Bytes small = rsaKey("sign pss sha512", 1024);
    EXPECT_EQ(tryBegin(kSign, small, "pss sha512"), kOtherDigest);
}

TEST_P(Operations, RsaSignaturesAreGoodForOpenssl) {
    const Bytes key = rsaKey(
        "sign verify nopad pss pkcs1sign nodigest md5 sha1 sha224 sha256 "
        "sha384 sha512");
    const Bytes data = pattern(1024);
    file("pub", exportKey(key).data);
    file("data", data);
    const auto signature = [&](const std::string& how, const Bytes& message) {
        const Output output = sign(key, how, message);
        EXPECT_EQ(output.error, E::OK) << how;
        file("sig", output.data);
        return output.data;
    };
    for (const std::string& digest : digests()) {
        const std::string check = "openssl dgst -keyform der -verify pub -signature sig -" + digest;
        const Bytes pkcs1 = signature("pkcs1sign " + digest, data);
        expectShell(check + " data", "Verified OK\n");
        expectExact(key, "pkcs1sign " + digest, data, pkcs1);
        const Bytes pss = signature("pss " + digest, data);
        expectShell(check + " -sigopt rsa_padding_mode:pss -sigopt rsa_pss_saltlen:digest data",
                    "Verified OK\n");
        expectExact(key, "pss " + digest, data, pss);
    }
    for (const size_t size : {1U, 53U, 128U, 255U}) {
        const Bytes message = pattern(size);
        file("data", message);
        expectExact(key, "nopad nodigest", message, signature("nopad nodigest", message));
        expectShell(
            "openssl pkeyutl -verifyrecover -pubin -keyform der -inkey pub -in sig -pkeyopt "
            "rsa_padding_mode:none | tail -c " +
            std::to_string(size) + " | cmp - data");
        if (size > 245) continue;
        expectExact(key, "pkcs1sign nodigest", message, signature("pkcs1sign nodigest", message));
        expectShell(
            "openssl pkeyutl -verifyrecover -pubin -keyform der -inkey pub -in sig | cmp - data");
    }
}

TEST_P(Operations, RsaRefusesDataThatDoesNotFit) {
    const Bytes key = rsaKey(
        "sign verify encrypt decrypt nopad pkcs1sign pkcs1crypt oaep nodigest "
        "sha256");
    constexpr size_t k = 256;  // bytes of the modulus
    constexpr size_t kInPublicKey = 33;
    const Bytes public_key = exportKey(key).data;
    const Bytes modulus(&public_key.at(kInPublicKey), &public_key.at(kInPublicKey) + k);
    const Bytes below = flipped(modulus, k - 1);  // it is odd
    const struct {
        KeyPurpose purpose;
        const char* how;
        Bytes data;
        E expected;
    } cases[] = {
        {kSign, "nopad nodigest", Bytes(k + 1), E::INVALID_INPUT_LENGTH},
        {kSign, "nopad nodigest", modulus, E::INVALID_ARGUMENT},
        {kSign, "nopad nodigest", below, E::OK},
        {kSign, "pkcs1sign nodigest", Bytes(k - 10), E::INVALID_INPUT_LENGTH},
        {kSign, "pkcs1sign nodigest", Bytes(1 << 17), E::INVALID_INPUT_LENGTH},
        {kVerify, "nopad nodigest", Bytes(k + 1), E::VERIFICATION_FAILED},
        {kEncrypt, "nopad", Bytes(k + 1), E::INVALID_INPUT_LENGTH},
        {kEncrypt, "nopad", modulus, E::INVALID_ARGUMENT},
        {kEncrypt, "nopad", below, E::OK},
        {kDecrypt, "nopad", Bytes(k - 1), E::INVALID_INPUT_LENGTH},
        {kDecrypt, "nopad", Bytes(k + 1), E::INVALID_INPUT_LENGTH},
        {kDecrypt, "nopad", modulus, E::INVALID_ARGUMENT},
        {kDecrypt, "pkcs1crypt", Bytes(k - 1), E::UNKNOWN_ERROR},
        {kDecrypt, "pkcs1crypt", Bytes(k + 1), E::INVALID_INPUT_LENGTH},
        {kDecrypt, "pkcs1crypt", modulus, E::UNKNOWN_ERROR},
        {kDecrypt, "oaep sha256", {}, E::UNKNOWN_ERROR},
        {kDecrypt, "oaep sha256", Bytes(k + 1), E::INVALID_INPUT_LENGTH},
    };
    for (const auto& each : cases) {
        for (const size_t step : {4096U, 13U}) {
            EXPECT_EQ(run(each.purpose, key, each.how, each.data, Bytes(k, 1), step).error,
                      each.expected)
                << &each - cases << " in steps of " << step;
        }
    }
}

// Encryption blocks written out by hand.
TEST_P(Operations, RsaOpensOnlyWellFormedBlocks) {
    const Bytes key = rsaKey("encrypt decrypt nopad pkcs1crypt");
    constexpr size_t k = 256;
    constexpr size_t kRefused = SIZE_MAX;
    const struct {
        const char* name;
        const char* start;
        size_t filler;
        const char* end;
        size_t content;  // bytes
    } cases[] = {
        {"eight bytes of filler", "0002", 8, "00", k - 11},
        {"zero in the content", "0002", 20, "0000", k - 23},
        {"no content", "0002", k - 3, "00", 0},
        {"seven bytes of filler", "0002", 7, "00", kRefused},
        {"no filler", "0002", 0, "00", kRefused},
        {"no end", "0002", 8, "", kRefused},
        {"signature block", "0001", 8, "00", kRefused},
        {"wrong first byte", "0102", 8, "00", kRefused},
        {"one byte late", "000002", 8, "00", kRefused},
    };
    for (const auto& each : cases) {
        Bytes block =
            joined(joined(fromHex(each.start), Bytes(each.filler, 0x77)), fromHex(each.end));
        block.resize(k, 0x66);
        const Output opened =
            run(kDecrypt, key, "pkcs1crypt", run(kEncrypt, key, "nopad", block).data);
        const bool good = each.content != kRefused;
        EXPECT_EQ(opened.error, good ? E::OK : E::UNKNOWN_ERROR) << each.name;
        block.erase(block.begin(),
                    good ? block.end() - static_cast<ptrdiff_t>(each.content) : block.end());
        EXPECT_EQ(opened.data, block) << each.name;
    }
}

TEST_P(Operations, EcSignaturesAreGoodForOpenssl) {
    struct Curve {
        const char* name;
        size_t order_bytes;
    };
    const Curve curves[] = {{"p256", 32}, {"p224", 28}, {"p384", 48}, {"p521", 66}};
    for (const Curve& curve : curves) {
        SCOPED_TRACE(curve.name);
        const Bytes key = generate(std::string("ec sign verify nodigest sha1 sha224 sha256 sha384 "
                                               "sha512 ") +
                                   curve.name)
                              .blob;
        file("pub", exportKey(key).data);
        const auto expectGood = [&](const std::string& how, const Bytes& data,
                                    const std::string& check, const std::string& verdict) {
            const Output output = sign(key, how, data);
            EXPECT_EQ(output.error, E::OK);
            file("sig", output.data);
            expectShell(check, verdict);
            expectExact(key, how, data, output.data);
        };
        for (const std::string& digest : digests()) {
            file("data", pattern(1024));
            expectGood(digest, pattern(1024),
                       "openssl dgst -keyform der -verify pub -signature sig -" + digest + " data",
                       "Verified OK\n");
        }
        EXPECT_EQ(verify(key, "nodigest", {}, sign(key, "nodigest", {}).data), E::OK);
        for (const size_t size : {size_t{10}, size_t{1024}}) {
            Bytes data = pattern(size);
            data[0] = 0;
            data[1] &= 0x7F;
            Bytes hash(data.begin(),
                       data.begin() + static_cast<ptrdiff_t>(std::min(size, curve.order_bytes)));
            if (hash.size() == 66) {
                // The leftmost 521 bits of 528; the command accepts at most 64 bytes.
                for (size_t i = 0; i < 64; ++i) {
                    hash[i] = static_cast<uint8_t>(hash[i + 1] << 1 | hash[i + 2] >> 7);
                }
                hash.resize(64);
            }
            file("data", hash);
            expectGood("nodigest", data,
                       "openssl pkeyutl -verify -pubin -keyform der -inkey pub -sigfile sig "
                       "-in data",
                       "Signature Verified Successfully\n");
        }
        if (strongbox()) return;
    }
}

TEST_P(Operations, MacsAreThoseOfOpenssl) {
    const Bytes secret = pattern(20);
    const Bytes data = pattern(300);
    file("data", data);
    for (const std::string& digest : digests()) {
        const Bytes key = raw("hmac sign verify minmac:128 " + digest, secret);
        const Output mac = sign(key, digest + " mac:160", data);
        file("mac", mac.data);
        expectShell("openssl dgst -mac HMAC -macopt hexkey:" + toHex(secret) + " -binary -" +
                    digest + " data | head -c 20 | cmp - mac");
        EXPECT_EQ(run(kSign, key, digest + " mac:160", data, {}, 7).data, mac.data);
        expectExact(key, digest, data, mac.data);
        EXPECT_EQ(verify(key, digest, data, Bytes(mac.data.begin(), mac.data.begin() + 16)), E::OK);
        EXPECT_EQ(verify(key, digest, data, Bytes(mac.data.begin(), mac.data.begin() + 15)),
                  E::INVALID_MAC_LENGTH);
    }
}

TEST_P(Operations, RsaCiphertextsAreGoodForOpenssl) {
    const Bytes key = rsaKey("decrypt nopad oaep pkcs1crypt sha1 sha224 sha256 sha384 sha512");
    file("key", rsaPrivate(2048));
    const auto encrypt = [&](const std::string& how, const Bytes& data) {
        return run(kEncrypt, key, how, data);
    };
    struct Case {
        std::string how, options;
        size_t most;
    };
    std::vector<Case> cases = {{"pkcs1crypt", "rsa_padding_mode:pkcs1", 245}};
    for (const std::string& digest : digests()) {
        const size_t digest_bytes = digest == "sha1" ? 20 : std::stoul(digest.substr(3)) / 8;
        cases.push_back(
            {"oaep " + digest,
             "rsa_padding_mode:oaep -pkeyopt rsa_mgf1_md:sha1 -pkeyopt rsa_oaep_md:" + digest,
             256 - 2 * digest_bytes - 2});
    }
    for (const Case& each : cases) {
        SCOPED_TRACE(each.how);
        const Bytes message = pattern(each.most);
        const Output first = encrypt(each.how, message);
        EXPECT_EQ(first.error, E::OK);
        EXPECT_NE(encrypt(each.how, message).data, first.data);
        file("message", message);
        file("cipher", first.data);
        const std::string command =
            "openssl pkeyutl -keyform der -inkey key -pkeyopt " + each.options;
        expectShell(command + " -decrypt -in cipher | cmp - message");
        EXPECT_EQ(run(kDecrypt, key, each.how, first.data).data, message);
        EXPECT_EQ(run(kDecrypt, key, each.how, flipped(first.data, 128)).error, E::UNKNOWN_ERROR);
        EXPECT_EQ(encrypt(each.how, pattern(each.most + 1)).error, E::INVALID_INPUT_LENGTH);
    }
    // Without padding: the number itself, zeros before it.
    const Bytes one = joined(Bytes(255), {1});
    EXPECT_EQ(encrypt("nopad", {1}).data, one);
    EXPECT_EQ(run(kDecrypt, key, "nopad", one).data, one);
    if (strongbox()) return;
    const Bytes other = encrypt("oaep sha1", text("x")).data;
    EXPECT_EQ(run(kDecrypt, key, "oaep sha256", other).error, E::UNKNOWN_ERROR);
}

// Ciphertexts as the openssl command makes them, in one piece and in odd ones, and back.
TEST_P(Operations, CiphersAreThoseOfOpenssl) {
    struct Case {
        std::string key, mode, padding, command;
        size_t key_bytes, nonce_bytes, unit;
    };
    const Case cases[] = {
        {"aes", "ecb", "nopad", "aes-128-ecb -nopad", 16, 0, 16},
        {"aes", "ecb", "pkcs7", "aes-256-ecb", 32, 0, 1},
        {"aes", "cbc", "nopad", "aes-256-cbc -nopad", 32, 16, 16},
        {"aes", "cbc", "pkcs7", "aes-128-cbc", 16, 16, 1},
        {"aes", "ctr", "nopad", "aes-256-ctr", 32, 16, 1},
        {"3des", "ecb", "pkcs7", "des-ede3-ecb", 24, 0, 1},
        {"3des", "ecb", "nopad", "des-ede3-ecb -nopad", 24, 0, 8},
        {"3des", "cbc", "pkcs7", "des-ede3-cbc", 24, 8, 1},
        {"3des", "cbc", "nopad", "des-ede3-cbc -nopad", 24, 8, 8},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.command);
        const Bytes secret = pattern(each.key_bytes);
        const std::string how = each.mode + " " + each.padding;
        const Bytes key = raw(each.key + " encrypt decrypt callernonce " + how, secret);
        const std::string iv = toHex(pattern(each.nonce_bytes));
        const std::string nonce = iv.empty() ? "" : " nonce:0x" + iv;
        for (const size_t size :
             {size_t{0}, each.unit, 2 * each.unit, 8 * each.unit, size_t{240}}) {
            const Bytes data = pattern(size);
            file("data", data);
            const Output whole = run(kEncrypt, key, how + nonce, data);
            expectShell("openssl enc -e -" + each.command + " -K " + toHex(secret) +
                            (iv.empty() ? "" : " -iv " + iv) + " -in data",
                        std::string(whole.data.begin(), whole.data.end()));
            for (const size_t step : {1U, 7U, 16U}) {
                EXPECT_EQ(run(kEncrypt, key, how + nonce, data, {}, step).data, whole.data);
                EXPECT_EQ(run(kDecrypt, key, how + nonce, whole.data, {}, step).data, data);
            }
        }
        // A nonce of its own, another every time; none where there is none.
        const Output first = run(kEncrypt, key, how, pattern(64));
        const Output second = run(kEncrypt, key, how, pattern(64));
        EXPECT_EQ(first.out == second.out, iv.empty());
        EXPECT_EQ(first.out.size(), iv.empty() ? 0 : std::string("nonce:0x").size() + iv.size());
        if (!iv.empty()) {
            EXPECT_EQ(run(kDecrypt, key, how + " " + first.out, first.data).data, pattern(64));
        }
    }
}

TEST_P(Operations, CiphersRefuseDataThatDoesNotFit) {
    const struct {
        const char* algorithm;
        const char* padding;
        KeyPurpose purpose;
        size_t bytes;  // the last of them as `end` says; to decrypt to that where there is one
        std::string end;
        E expected;
    } cases[] = {
        {"aes", "nopad", kEncrypt, 31, "", E::INVALID_INPUT_LENGTH},
        {"aes", "nopad", kDecrypt, 17, "", E::INVALID_INPUT_LENGTH},
        {"3des", "nopad", kEncrypt, 15, "", E::INVALID_INPUT_LENGTH},
        {"aes", "pkcs7", kDecrypt, 0, "", E::INVALID_INPUT_LENGTH},
        {"3des", "pkcs7", kDecrypt, 12, "", E::INVALID_INPUT_LENGTH},
        {"aes", "pkcs7", kDecrypt, 48, "01", E::OK},
        {"aes", "pkcs7", kDecrypt, 48, "010100", E::INVALID_ARGUMENT},
        {"aes", "pkcs7", kDecrypt, 48, std::string(34, '1'), E::INVALID_ARGUMENT},
        {"aes", "pkcs7", kDecrypt, 48, "03020303", E::INVALID_ARGUMENT},
        {"3des", "pkcs7", kDecrypt, 48, "0808080808080808", E::OK},
        {"3des", "pkcs7", kDecrypt, 48, "090909090909090909", E::INVALID_ARGUMENT},
    };
    const Bytes aes = raw("aes encrypt decrypt ecb nopad pkcs7", pattern(16));
    const Bytes des = raw("3des encrypt decrypt ecb nopad pkcs7", pattern(24));
    for (const auto& each : cases) {
        const Bytes& key = each.algorithm[0] == 'a' ? aes : des;
        Bytes data = joined(Bytes(each.bytes - each.end.size() / 2), fromHex(each.end));
        if (!each.end.empty()) data = run(kEncrypt, key, "ecb nopad", data).data;
        for (const size_t step : {4096U, 8U}) {
            const std::string how = std::string("ecb ") + each.padding;
            EXPECT_EQ(run(each.purpose, key, how, data, {}, step).error, each.expected)
                << &each - cases << " in steps of " << step;
        }
    }
}

// AES-GCM, test case 4 of those published with it.
TEST_P(Operations, GcmMatchesThePublishedVector) {
    const Bytes key = raw("aes encrypt decrypt gcm nopad minmac:96 callernonce",
                          fromHex("feffe9928665731c6d6a8f9467308308"));
    const std::string how = "gcm nopad mac:128 nonce:0xcafebabefacedbaddecaf888";
    const std::string aad = "aad:0xfeedfacedeadbeeffeedfacedeadbeefabaddad2";
    const Bytes plain = fromHex(
        "d9313225f88406e5a55909c5aff5269a86a7a9531534f7da2e4c303d8a318a721c3c0c95956809532f"
        "cf0e2449a6b525b16aedf5aa0de657ba637b39");
    const Bytes sealed = fromHex(
        "42831ec2217774244b7221b784d0d49ce3aa212f2c02a4e035c17e2329aca12e21d514b25466931c7d"
        "8f6a5aac84aa051ba30b396a0aac973d58e091"
        "5bc94fbc3221a5db94fae95ae7121a47");
    for (const size_t step : {1U, 13U, 16U, 100U}) {
        EXPECT_EQ(toHex(run(kEncrypt, key, how, plain, {}, step, aad).data), toHex(sealed));
        EXPECT_EQ(toHex(run(kDecrypt, key, how, sealed, {}, step, aad).data), toHex(plain));
    }
    const auto open = [&](const std::string& with, const Bytes& data, const std::string& more) {
        return run(kDecrypt, key, with, data, {}, 4096, more).error;
    };
    constexpr E kBad = E::VERIFICATION_FAILED;
    EXPECT_EQ(open(how, flipped(sealed, 75), aad), kBad);
    EXPECT_EQ(open(how, flipped(sealed, 0), aad), kBad);
    EXPECT_EQ(open(how, sealed, "aad:x"), kBad);
    EXPECT_EQ(open("gcm nopad mac:128 nonce:000000000000", sealed, aad), kBad);
    EXPECT_EQ(open(how, pattern(15), aad), E::INVALID_INPUT_LENGTH);

    // Associated data: in pieces, alone, and never behind data.
    const auto begun = [&] { return begin(kEncrypt, key, how).handle; };
    const uint64_t pieces = begun();
    EXPECT_EQ(update(pieces, {}, "aad:foo").error, E::OK);
    const Bytes tag = finish(pieces, {}, {}, "aad:foo").data;
    EXPECT_EQ(tag, finish(begun(), {}, {}, "aad:foofoo").data);
    EXPECT_EQ(tag.size(), 16U);
    EXPECT_TRUE(run(kDecrypt, key, how, tag, {}, 4096, "aad:foofoo").data.empty());
    const uint64_t late = begun();
    EXPECT_EQ(update(late, text("data"), "aad:foo").error, E::OK);
    EXPECT_EQ(update(late, {}, "aad:foo").error, E::INVALID_TAG);
    EXPECT_EQ(abort(late), E::INVALID_OPERATION_HANDLE);
    const Output own = run(kEncrypt, key, "gcm nopad mac:96", plain);
    EXPECT_EQ(own.out.size(), std::string("nonce:0x").size() + 24);
    EXPECT_EQ(own.data.size(), plain.size() + 12);
}

TEST_P(Operations, EndOnceAndAreLimited) {
    const Bytes key = generate("aes size:128 encrypt ecb nopad noauth").blob;
    const auto handle = [&] { return begin(kEncrypt, key, "ecb nopad").handle; };
    const auto expectGone = [&](uint64_t gone) {
        EXPECT_EQ(update(gone, {}).error, E::INVALID_OPERATION_HANDLE);
        EXPECT_EQ(finish(gone).error, E::INVALID_OPERATION_HANDLE);
        EXPECT_EQ(abort(gone), E::INVALID_OPERATION_HANDLE);
    };
    const uint64_t aborted = handle(), finished = handle(), failed = handle();
    EXPECT_EQ(abort(aborted), E::OK);
    EXPECT_EQ(finish(finished, pattern(2048)).data.size(), 2048U);
    EXPECT_EQ(finish(failed, pattern(31)).error, E::INVALID_INPUT_LENGTH);
    for (const uint64_t gone : {aborted, finished, failed, uint64_t{0}}) expectGone(gone);

    std::vector<uint64_t> handles(strongbox() ? 4 : 16);
    for (uint64_t& each : handles) each = handle();
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(tryBegin(kEncrypt, key, "ecb nopad"), E::TOO_MANY_OPERATIONS);
    }
    for (const uint64_t each : handles) EXPECT_EQ(abort(each), E::OK);
    EXPECT_EQ(tryBegin(kEncrypt, key, "ecb nopad"), E::OK);
}

}  // namespace
}  // namespace lumo::test
