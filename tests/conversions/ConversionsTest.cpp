// The openssl command makes every key and signature and is the judge of what comes back; it is
// another program than the libcrypto under test.
#include <KeymasterCryptoDevice.h>
#include <LogCapture.h>
#include <ScriptedTransport.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/crypto.h>
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
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Lines = std::vector<std::string>;

std::string scratchFile(const std::string& name) {
    return testing::TempDir() + "conversions." + std::to_string(getpid()) + "." + name;
}

// Runs the openssl command; "IN" in the arguments stands for a file with the bytes of `input`.
Bytes openssl(std::string arguments, const Bytes& input = {}) {
    const std::string path = scratchFile("in");
    std::ofstream(path, std::ios::binary) << std::string(input.begin(), input.end());
    const size_t at = arguments.find("IN");
    if (at != std::string::npos) arguments.replace(at, 2, path);
    const std::string command = "openssl " + arguments + " 2>/dev/null";
    FILE* pipe = popen(command.c_str(), "r");
    Bytes output;
    for (int c = getc(pipe); c != EOF; c = getc(pipe)) output.push_back(static_cast<uint8_t>(c));
    EXPECT_EQ(pclose(pipe), 0) << command;
    unlink(path.c_str());
    return output;
}

Bytes newEcKey(const std::string& curve) {
    return openssl("ecparam -genkey -noout -outform DER -name " + curve);
}

Bytes newRsaKey(const std::string& bits, const std::string& exponent) {
    return openssl("genpkey -outform DER -algorithm RSA -pkeyopt rsa_keygen_bits:" + bits +
                   " -pkeyopt rsa_keygen_pubexp:" + exponent);
}

Bytes toPkcs8(const Bytes& key) {
    return openssl("pkcs8 -topk8 -nocrypt -inform DER -outform DER -in IN", key);
}

Bytes publicKeyOf(const Bytes& key) {
    return openssl("pkey -inform DER -pubout -outform DER -in IN", key);
}

Bytes withoutLeadingZeros(const Bytes& bytes) {
    return {std::find_if(bytes.begin(), bytes.end(), [](uint8_t b) { return b != 0; }),
            bytes.end()};
}

Bytes slice(const Bytes& bytes, size_t from, size_t length) {
    const auto first = bytes.begin() + static_cast<std::ptrdiff_t>(from);
    return {first, first + static_cast<std::ptrdiff_t>(length)};
}

struct Point {
    Bytes x, y;
};

// A SubjectPublicKeyInfo of an EC key ends in its uncompressed point.
Point pointOf(const Bytes& public_key, size_t width) {
    const size_t size = public_key.size();
    return {slice(public_key, size - 2 * width, width), slice(public_key, size - width, width)};
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

Bytes take(const keymaster_blob_t& blob) {
    return take(const_cast<uint8_t*>(blob.data), blob.data_length);
}

// The lines of a call, all of which must be errors of the conversions.
Lines linesOf(const LogCapture& log) {
    for (const auto& line : log.lines()) {
        EXPECT_EQ(line.tag, "KeyMasterCryptoDevice");
        EXPECT_EQ(line.priority, 6);
    }
    return log.texts();
}

const struct {
    const char* name;
    uint32_t bits;
    size_t width;
} kCurves[] = {{"secp224r1", 224, 28},
               {"prime256v1", 256, 32},
               {"secp384r1", 384, 48},
               {"secp521r1", 521, 66}};

struct ImportedKey {
    keymaster_error_t error;
    Bytes scalar, x, y;
    uint32_t key_size;
};

ImportedKey import(const Bytes& pkcs8) {
    const keymaster_blob_t blob = blobOf(pkcs8);
    _keymaster_ec_import_internal_t out{};
    const keymaster_error_t error =
        KeymasterCryptoDevice().pkcs8_to_internal(KM_ALGORITHM_EC, &blob, &out);
    if (error != KM_ERROR_OK) return {error, {}, {}, {}, 0};
    return {error, take(out.priv_key, out.priv_key_len), take(out.pubkey_x, out.pubkey_x_len),
            take(out.pubkey_y, out.pubkey_y_len), out.key_size};
}

TEST(Pkcs8, KeysOfEveryCurve) {
    for (const auto& curve : kCurves) {
        SCOPED_TRACE(curve.name);
        const Bytes key = newEcKey(curve.name);
        // ECPrivateKey: the scalar is the octet string behind the version.
        const Bytes scalar = slice(key, key[1] < 0x80 ? 7 : 8, curve.width);
        const Point point = pointOf(publicKeyOf(key), curve.width);

        const ImportedKey imported = import(toPkcs8(key));
        ASSERT_EQ(imported.error, KM_ERROR_OK);
        EXPECT_EQ(imported.scalar, withoutLeadingZeros(scalar));
        EXPECT_EQ(imported.x, withoutLeadingZeros(point.x));
        EXPECT_EQ(imported.y, withoutLeadingZeros(point.y));
        EXPECT_EQ(imported.key_size, curve.bits);
    }
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

TEST(Pkcs8, NumbersAreNotPadded) {
    const ImportedKey imported = import(toPkcs8(sec1Key(kShortScalar)));
    ASSERT_EQ(imported.error, KM_ERROR_OK);
    EXPECT_EQ(imported.scalar, Bytes(31, 0x77));

    const ImportedKey narrow = import(toPkcs8(sec1Key(kScalar379)));
    ASSERT_EQ(narrow.error, KM_ERROR_OK);
    EXPECT_EQ(narrow.scalar, hex("017b"));
    EXPECT_EQ(narrow.x.size(), 31U);
    EXPECT_EQ(narrow.y.size(), 32U);
}

// The public key is optional in the structure, and is made where it is missing.
TEST(Pkcs8, KeyWithoutPublicKey) {
    const ImportedKey imported = import(pkcs8Key(kShortScalar) + hex("00"));  // and a byte too many
    ASSERT_EQ(imported.error, KM_ERROR_OK);
    const Point point = pointOf(publicKeyOf(sec1Key(kShortScalar)), 32);
    EXPECT_EQ(imported.x, withoutLeadingZeros(point.x));
    EXPECT_EQ(imported.y, withoutLeadingZeros(point.y));
}

TEST(Pkcs8, OtherCurvesHaveNoSize) {
    const ImportedKey imported = import(toPkcs8(newEcKey("secp256k1")));
#ifdef OPENSSL_IS_BORINGSSL  // does not know the curve
    EXPECT_EQ(imported.error, KM_ERROR_INVALID_KEY_BLOB);
#else
    EXPECT_EQ(imported.error, KM_ERROR_OK);
    EXPECT_EQ(imported.key_size, 0U);
#endif
}

TEST(Pkcs8, Refusals) {
    const Bytes ec = pkcs8Key(kShortScalar);
    const Bytes rsa = toPkcs8(newRsaKey("1024", "65537"));
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
        const Bytes before(sizeof(_keymaster_ec_import_internal_t), 0x5A);
        _keymaster_ec_import_internal_t out;
        memcpy(&out, before.data(), sizeof(out));
        LogCapture log;
        EXPECT_EQ(KeymasterCryptoDevice().pkcs8_to_internal(c.algorithm, &blob, &out),
                  KM_ERROR_INVALID_KEY_BLOB);
        EXPECT_EQ(linesOf(log), lines);
        EXPECT_EQ(memcmp(&out, before.data(), sizeof(out)), 0);
    }
}

// As the device core hands it in: what is not of the algorithm at hand is all ones.
_keymaster_export_internal_t exportRecord(keymaster_algorithm_t algorithm) {
    _keymaster_export_internal_t record;
    memset(&record, 0xFF, sizeof(record));
    record.algorithm = algorithm;
    return record;
}

_keymaster_export_internal_t ecRecord(const Bytes& x, const Bytes& y) {
    _keymaster_export_internal_t record = exportRecord(KM_ALGORITHM_EC);
    record.pubkey_x = x.data();
    record.pubkey_x_len = sizeOf(x);
    record.pubkey_y = y.data();
    record.pubkey_y_len = sizeOf(y);
    return record;
}

_keymaster_export_internal_t rsaRecord(const Bytes& modulus, const Bytes& exponent) {
    _keymaster_export_internal_t record = exportRecord(KM_ALGORITHM_RSA);
    record.modulus = modulus.data();
    record.modulus_len = sizeOf(modulus);
    record.exponent = exponent.data();
    record.exponent_len = sizeOf(exponent);
    return record;
}

Bytes toX509(_keymaster_export_internal_t in) {
    keymaster_blob_t out{};
    LogCapture log;
    EXPECT_EQ(KeymasterCryptoDevice().internal_to_x509(&in, &out), KM_ERROR_OK);
    EXPECT_THAT(linesOf(log), IsEmpty());
    return take(out);
}

TEST(SubjectPublicKeyInfo, EcCurveFollowsFromThePoint) {
    std::vector<std::pair<Bytes, size_t>> keys = {{publicKeyOf(sec1Key(kScalar379)), 32}};
    for (const auto& curve : kCurves) {
        keys.emplace_back(publicKeyOf(newEcKey(curve.name)), curve.width);
    }
    for (const auto& [expected, width] : keys) {
        const Point padded = pointOf(expected, width);
        const Bytes x = withoutLeadingZeros(padded.x), y = withoutLeadingZeros(padded.y);
        EXPECT_EQ(toX509(ecRecord(padded.x, padded.y)), expected);
        EXPECT_EQ(toX509(ecRecord(x, y)), expected);
    }
}

TEST(SubjectPublicKeyInfo, Rsa) {
    for (const auto& [exponent, bytes] : {std::pair{"3", "03"}, {"65537", "010001"}}) {
        const Bytes key = newRsaKey("2048", exponent);
        const Bytes line = openssl("rsa -inform DER -noout -modulus -in IN", key);
        const std::string text(line.begin(), line.end() - 1);
        const Bytes modulus = hex(text.substr(text.find('=') + 1));
        const Bytes exponent_bytes = hex(bytes);
        EXPECT_EQ(toX509(rsaRecord(modulus, exponent_bytes)), publicKeyOf(key));
    }
}

TEST(SubjectPublicKeyInfo, Refusals) {
    constexpr char kNoX[] = "Key blob appears to have incorrect pubkey_x length";
    constexpr char kNoY[] = "Key blob appears to have incorrect pubkey_y length";
    constexpr char kNoExponent[] = "Key blob appears to have incorrect exponent";
    constexpr char kNoModulus[] = "Key blob appears to have incorrect modulus";
    const Bytes number(32, 0x11), none, too_long(67, 0x11);
    const auto ec = ecRecord(number, number);  // on no curve
    const struct {
        _keymaster_export_internal_t in;
        keymaster_error_t error;
        const char* line;
    } cases[] = {
        {exportRecord(KM_ALGORITHM_AES), KM_ERROR_UNSUPPORTED_ALGORITHM, "Unsupported Alg: 32"},
        {ecRecord(none, none), KM_ERROR_KEY_EXPORT_OPTIONS_INVALID, kNoX},
        {ecRecord(number, none), KM_ERROR_KEY_EXPORT_OPTIONS_INVALID, kNoY},
        {ec, KM_ERROR_INVALID_KEY_BLOB, "group get failed"},
        {ecRecord(too_long, number), KM_ERROR_INVALID_KEY_BLOB, "group get failed"},
        {rsaRecord(none, none), KM_ERROR_KEY_EXPORT_OPTIONS_INVALID, kNoExponent},
        {rsaRecord(none, number), KM_ERROR_KEY_EXPORT_OPTIONS_INVALID, kNoModulus},
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

std::pair<Bytes, Bytes> takeApart(const Bytes& der) {
    const keymaster_blob_t blob = blobOf(der);
    _keymaster_ec_sig_internal_t out{};
    EXPECT_EQ(KeymasterCryptoDevice().ecsig_to_internal(&blob, &out), KM_ERROR_OK);
    return {take(out.r, out.r_len), take(out.s, out.s_len)};
}

Bytes putTogether(std::pair<Bytes, Bytes> numbers) {
    auto& [r, s] = numbers;
    _keymaster_ec_sig_internal_t in = {r.data(), sizeOf(r), s.data(), sizeOf(s)};
    keymaster_blob_t out{};
    EXPECT_EQ(KeymasterCryptoDevice().internal_to_ecsig(&in, &out), KM_ERROR_OK);
    return take(out);
}

// The integers in the judge's listing of a DER structure.
std::vector<Bytes> integersIn(const Bytes& der) {
    const Bytes listing = openssl("asn1parse -inform DER -in IN", der);
    const std::string text(listing.begin(), listing.end());
    std::vector<Bytes> numbers;
    for (size_t at = text.find("INTEGER"); at != std::string::npos;
         at = text.find("INTEGER", at + 1)) {
        const size_t colon = text.find(':', at);
        numbers.push_back(hex(text.substr(colon + 1, text.find('\n', colon) - colon - 1)));
    }
    return numbers;
}

TEST(EcdsaSignature, TakenApartAndPutTogether) {
    for (const auto& curve : kCurves) {
        SCOPED_TRACE(curve.name);
        const std::string key_file = scratchFile("key");
        openssl("pkey -inform DER -in IN -out " + key_file, newEcKey(curve.name));
        const Bytes der = openssl("dgst -sha256 -sign " + key_file + " IN", hex("616263"));
        unlink(key_file.c_str());

        const auto parts = takeApart(der);
        EXPECT_THAT(integersIn(der), ElementsAre(parts.first, parts.second));
        EXPECT_EQ(putTogether(parts), der);
    }
}

TEST(EcdsaSignature, NumbersAreMinimal) {
    const Bytes der = hex("3007 02020080 020102");
    EXPECT_EQ(takeApart(der), std::pair(hex("80"), hex("02")));
    EXPECT_EQ(putTogether({hex("80"), hex("00000002")}), der);
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
    _keymaster_export_internal_t record = ecRecord({}, {});
    _keymaster_ec_sig_internal_t sig = {&byte, 1, &byte, 1}, no_r = {nullptr, 1, &byte, 1},
                                 empty_s = {&byte, 1, &byte, 0};
    LogCapture log;
    KeymasterCryptoDevice device;
    for (const auto error :
         {device.pkcs8_to_internal(KM_ALGORITHM_EC, nullptr, &key),
          device.pkcs8_to_internal(KM_ALGORITHM_EC, &none, &key),
          device.pkcs8_to_internal(KM_ALGORITHM_EC, &empty, &key),
          device.pkcs8_to_internal(KM_ALGORITHM_EC, &one, nullptr),
          device.internal_to_x509(nullptr, &one), device.internal_to_x509(&record, nullptr),
          device.ecsig_to_internal(nullptr, &sig), device.ecsig_to_internal(&none, &sig),
          device.ecsig_to_internal(&one, nullptr), device.internal_to_ecsig(nullptr, &one),
          device.internal_to_ecsig(&no_r, &one), device.internal_to_ecsig(&empty_s, &one),
          device.internal_to_ecsig(&sig, nullptr)}) {
        EXPECT_EQ(error, KM_ERROR_UNEXPECTED_NULL_POINTER);
    }
    EXPECT_THAT(log.texts(), IsEmpty());
}

}  // namespace
