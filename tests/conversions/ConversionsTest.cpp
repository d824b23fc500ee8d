// The openssl command makes the keys and their encodings; it is another program than the libcrypto
// under test.
#include <KeymasterCryptoDevice.h>
#include <LogCapture.h>
#include <ScriptedTransport.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <tuple>

namespace {

using namespace ::keymasterdevice;
using ::lumo::test::Bytes;
using ::lumo::test::hex;
using ::lumo::test::LogCapture;
using ::lumo::test::operator+;
using ::lumo::test::toHex;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Lines = std::vector<std::string>;

// Runs the openssl command on a file with the bytes of `input`.
Bytes openssl(const std::string& arguments, const Bytes& input = {}) {
    const std::string path = testing::TempDir() + "conversions." + std::to_string(getpid());
    std::ofstream(path, std::ios::binary) << std::string(input.begin(), input.end());
    const std::string in = input.empty() ? "" : " -inform DER -in " + path;
    const std::string command = "openssl " + arguments + " -outform DER" + in + " 2>/dev/null";
    FILE* pipe = popen(command.c_str(), "r");
    Bytes output;
    for (int c = getc(pipe); c != EOF; c = getc(pipe)) output.push_back(static_cast<uint8_t>(c));
    EXPECT_EQ(pclose(pipe), 0) << command;
    unlink(path.c_str());
    return output;
}

Bytes toPkcs8(const Bytes& key) {
    return openssl("pkcs8 -topk8 -nocrypt", key);
}

Bytes publicKeyOf(const Bytes& key) {
    return openssl("pkey -pubout", key);
}

Bytes withoutLeadingZeros(const Bytes& bytes) {
    return {std::find_if(bytes.begin(), bytes.end(), [](uint8_t b) { return b != 0; }),
            bytes.end()};
}

Bytes slice(const Bytes& bytes, size_t from, size_t length) {
    const auto first = bytes.begin() + static_cast<std::ptrdiff_t>(from);
    return {first, first + static_cast<std::ptrdiff_t>(length)};
}

keymaster_blob_t blobOf(const Bytes& bytes) {
    return {bytes.data(), bytes.size()};
}

uint32_t sizeOf(const Bytes& bytes) {
    return static_cast<uint32_t>(bytes.size());
}

Bytes take(uint8_t* data, size_t length) {
    const Bytes bytes(data, data + length);
    free(data);
    return bytes;
}

// The lines of a call, all of which must be errors of the conversions.
Lines linesOf(const LogCapture& log) {
    for (const auto& line : log.lines()) {
        EXPECT_EQ(line.tag + std::to_string(line.priority), "KeyMasterCryptoDevice6");
    }
    return log.texts();
}

struct Numbers {
    uint32_t key_size;
    Bytes scalar, x, y;
};

Numbers import(const Bytes& pkcs8) {
    const keymaster_blob_t blob = blobOf(pkcs8);
    _keymaster_ec_import_internal_t out{};
    EXPECT_EQ(KeymasterCryptoDevice().pkcs8_to_internal(KM_ALGORITHM_EC, &blob, &out), KM_ERROR_OK);
    return {out.key_size, take(out.priv_key, out.priv_key_len),
            take(out.pubkey_x, out.pubkey_x_len), take(out.pubkey_y, out.pubkey_y_len)};
}

// RFC 5915 on P-256, without the optional public key; the scalar has 32 bytes.
Bytes sec1Key(const Bytes& scalar) {
    return hex("3031 020101 0420") + scalar + hex("a00a 0608 2a8648ce3d030107");
}

// The same as PKCS#8 (RFC 5208).
Bytes pkcs8Key(const Bytes& scalar) {
    return hex("304d 020100 3013 0607 2a8648ce3d0201 0608 2a8648ce3d030107 0433") + sec1Key(scalar);
}

const Bytes kShortScalar = hex("00") + Bytes(31, 0x77);
const Bytes kScalar379 = Bytes(30) + hex("017b");  // x of its point has 31 bytes

TEST(Pkcs8, Refusals) {
    const Bytes ec = pkcs8Key(kShortScalar);
    const Bytes rsa = toPkcs8(openssl("genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:1024"));
    const Bytes cut = slice(ec, 0, ec.size() - 1);
    const struct {
        keymaster_algorithm_t algorithm;
        const Bytes& key;
        const char* line;  // before the three that tell of a key of the wrong kind; null for none
    } cases[] = {
        {KM_ALGORITHM_EC, cut, nullptr},
        {KM_ALGORITHM_RSA, ec, "EVP key algorithm was 408, not the expected 6"},
        {KM_ALGORITHM_EC, rsa, "EVP key algorithm was 6, not the expected 408"},
        {KM_ALGORITHM_AES, ec, "EVP key algorithm was 408, not the expected -1"},
        {KM_ALGORITHM_RSA, rsa, "pEcKey get failed"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.line == nullptr ? "cut" : c.line);
        Lines lines;
        if (c.line != nullptr) lines.emplace_back(c.line);
        if (&c != std::end(cases) - 1) {
            lines.emplace_back("convert_pkcs8_blob_to_evp failed with ret:-33");
            lines.push_back("import_alg:" + std::to_string(c.algorithm));
            lines.push_back("key_data->data_length:" + std::to_string(c.key.size()));
        }
        const keymaster_blob_t blob = blobOf(c.key);
        _keymaster_ec_import_internal_t out{};
        LogCapture log;
        EXPECT_EQ(KeymasterCryptoDevice().pkcs8_to_internal(c.algorithm, &blob, &out),
                  KM_ERROR_INVALID_KEY_BLOB);
        EXPECT_EQ(linesOf(log), lines);
        EXPECT_EQ(out.priv_key, nullptr);
    }
}

// As the device core hands it in: modulus and exponent, or x and y; what is not of the algorithm at
// hand is all ones.
_keymaster_export_internal_t exportRecord(keymaster_algorithm_t algorithm, const Bytes& first = {},
                                          const Bytes& second = {}) {
    _keymaster_export_internal_t record;
    memset(&record, 0xFF, sizeof(record));
    record.algorithm = algorithm;
    if (algorithm == KM_ALGORITHM_RSA) {
        record.modulus = first.data();
        record.modulus_len = sizeOf(first);
        record.exponent = second.data();
        record.exponent_len = sizeOf(second);
    } else if (algorithm == KM_ALGORITHM_EC) {
        record.pubkey_x = first.data();
        record.pubkey_x_len = sizeOf(first);
        record.pubkey_y = second.data();
        record.pubkey_y_len = sizeOf(second);
    }
    return record;
}

Bytes toX509(_keymaster_export_internal_t in) {
    keymaster_blob_t out{};
    LogCapture log;
    EXPECT_EQ(KeymasterCryptoDevice().internal_to_x509(&in, &out), KM_ERROR_OK);
    EXPECT_THAT(linesOf(log), IsEmpty());
    return take(const_cast<uint8_t*>(out.data), out.data_length);
}

// Numbers come out without leading zeros, where the key has no public key too, and go in with or
// without them; the curve follows from them.
TEST(EcKeys, OfEveryCurve) {
    const auto made = [](const std::string& curve) {
        return openssl("ecparam -genkey -noout -name " + curve);
    };
    const struct {
        Bytes key;  // as RFC 5915 has it
        uint32_t bits;
        size_t width;
        Bytes pkcs8;
    } cases[] = {
        {made("secp224r1"), 224, 28, {}},
        {made("prime256v1"), 256, 32, {}},
        {made("secp384r1"), 384, 48, {}},
        {made("secp521r1"), 521, 66, {}},
        {sec1Key(kShortScalar), 256, 32, pkcs8Key(kShortScalar)},
        {sec1Key(kScalar379), 256, 32, pkcs8Key(kScalar379) + hex("00")},  // and a byte too many
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(toHex(c.key));
        const Bytes expected = publicKeyOf(c.key);  // ends in the uncompressed point
        const Bytes x = slice(expected, expected.size() - 2 * c.width, c.width);
        const Bytes y = slice(expected, expected.size() - c.width, c.width);
        // The scalar is the octet string behind the version.
        const Bytes scalar = slice(c.key, c.key[1] < 0x80 ? 7 : 8, c.width);

        const Numbers numbers = import(c.pkcs8.empty() ? toPkcs8(c.key) : c.pkcs8);
        EXPECT_EQ(numbers.key_size, c.bits);
        EXPECT_EQ(numbers.scalar, withoutLeadingZeros(scalar));
        EXPECT_EQ(numbers.x, withoutLeadingZeros(x));
        EXPECT_EQ(numbers.y, withoutLeadingZeros(y));
        EXPECT_EQ(toX509(exportRecord(KM_ALGORITHM_EC, x, y)), expected);
        EXPECT_EQ(toX509(exportRecord(KM_ALGORITHM_EC, numbers.x, numbers.y)), expected);
    }
}

TEST(SubjectPublicKeyInfo, Refusals) {
    constexpr char kNoX[] = "Key blob appears to have incorrect pubkey_x length";
    constexpr char kNoY[] = "Key blob appears to have incorrect pubkey_y length";
    constexpr char kNoExponent[] = "Key blob appears to have incorrect exponent";
    constexpr char kNoModulus[] = "Key blob appears to have incorrect modulus";
    const Bytes number(32, 0x11), none, too_long(67, 0x11);
    const auto ec = exportRecord(KM_ALGORITHM_EC, number, number);  // on no curve
    const struct {
        _keymaster_export_internal_t in;
        keymaster_error_t error;
        const char* line;
    } cases[] = {
        {exportRecord(KM_ALGORITHM_AES), KM_ERROR_UNSUPPORTED_ALGORITHM, "Unsupported Alg: 32"},
        {exportRecord(KM_ALGORITHM_EC, none, none), KM_ERROR_KEY_EXPORT_OPTIONS_INVALID, kNoX},
        {exportRecord(KM_ALGORITHM_EC, number, none), KM_ERROR_KEY_EXPORT_OPTIONS_INVALID, kNoY},
        {ec, KM_ERROR_INVALID_KEY_BLOB, "group get failed"},
        {exportRecord(KM_ALGORITHM_EC, too_long, number), KM_ERROR_INVALID_KEY_BLOB,
         "group get failed"},
        {exportRecord(KM_ALGORITHM_RSA, none, none), KM_ERROR_KEY_EXPORT_OPTIONS_INVALID,
         kNoExponent},
        {exportRecord(KM_ALGORITHM_RSA, none, number), KM_ERROR_KEY_EXPORT_OPTIONS_INVALID,
         kNoModulus},
    };
    KeymasterCryptoDevice device;
    for (auto c : cases) {
        keymaster_blob_t out = {number.data(), 7};
        LogCapture log;
        EXPECT_EQ(device.internal_to_x509(&c.in, &out), c.error) << c.line;
        EXPECT_THAT(linesOf(log), ElementsAre(c.line));
        EXPECT_EQ(std::tuple(out.data, out.data_length), std::tuple(number.data(), 7U));
    }
}

TEST(EcdsaSignature, TakenApartAndPutTogether) {
    const Bytes der = hex("3007 02020080 020102");
    const keymaster_blob_t signature = blobOf(der);
    _keymaster_ec_sig_internal_t parts{};
    KeymasterCryptoDevice device;
    EXPECT_EQ(device.ecsig_to_internal(&signature, &parts), KM_ERROR_OK);
    EXPECT_EQ(take(parts.r, parts.r_len), hex("80"));
    EXPECT_EQ(take(parts.s, parts.s_len), hex("02"));

    Bytes r = hex("80"), s = hex("00000002");
    _keymaster_ec_sig_internal_t in = {r.data(), 1, s.data(), 4};
    keymaster_blob_t out{};
    EXPECT_EQ(device.internal_to_ecsig(&in, &out), KM_ERROR_OK);
    EXPECT_EQ(take(const_cast<uint8_t*>(out.data), out.data_length), der);
}

TEST(EcdsaSignature, Refusals) {
    const struct {
        const char* der;
        bool logged;
    } cases[] = {
        {"3006 020101 020102 00", true},  // a byte too many
        {"3006 020101 0201", true},       // cut
        {"3106 020101 020102", true},     // no sequence
        {"3006 020100 020102", false},    // r is zero
        {"3006 020101 020100", false},    // s is zero
    };
    KeymasterCryptoDevice device;
    uint8_t byte = 1;
    for (const auto& c : cases) {
        const Bytes der = hex(c.der);
        const keymaster_blob_t blob = blobOf(der);
        _keymaster_ec_sig_internal_t out = {&byte, 7, &byte, 8};
        LogCapture log;
        EXPECT_EQ(device.ecsig_to_internal(&blob, &out), KM_ERROR_VERIFICATION_FAILED) << c.der;
        EXPECT_EQ(linesOf(log), c.logged ? Lines{"ecdsa_sig NULL or validation failed"} : Lines{});
        EXPECT_EQ(std::tuple(out.r, out.r_len, out.s, out.s_len), std::tuple(&byte, 7U, &byte, 8U));
    }
}

TEST(Conversions, MissingArguments) {
    uint8_t byte = 1;
    keymaster_blob_t one = {&byte, 1}, empty = {&byte, 0}, none = {nullptr, 1};
    _keymaster_ec_import_internal_t key{};
    _keymaster_export_internal_t record = exportRecord(KM_ALGORITHM_EC);
    _keymaster_ec_sig_internal_t sig = {&byte, 1, &byte, 1}, no_r = sig, no_s = sig;
    no_r.r = nullptr;
    no_s.s_len = 0;
    LogCapture log;
    KeymasterCryptoDevice d;
    for (const auto error :
         {d.pkcs8_to_internal(KM_ALGORITHM_EC, nullptr, &key),
          d.pkcs8_to_internal(KM_ALGORITHM_EC, &none, &key),
          d.pkcs8_to_internal(KM_ALGORITHM_EC, &empty, &key),
          d.pkcs8_to_internal(KM_ALGORITHM_EC, &one, nullptr), d.internal_to_x509(nullptr, &one),
          d.internal_to_x509(&record, nullptr), d.ecsig_to_internal(nullptr, &sig),
          d.ecsig_to_internal(&none, &sig), d.ecsig_to_internal(&one, nullptr),
          d.internal_to_ecsig(nullptr, &one), d.internal_to_ecsig(&no_r, &one),
          d.internal_to_ecsig(&no_s, &one), d.internal_to_ecsig(&sig, nullptr)}) {
        EXPECT_EQ(error, KM_ERROR_UNEXPECTED_NULL_POINTER);
    }
    EXPECT_THAT(log.texts(), IsEmpty());
}

}  // namespace
